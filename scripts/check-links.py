#!/usr/bin/env python3
"""Checks the links of a built HTML site: each leads to a file of the site and, where it names a
place in a page, to an element with that id. Links to other sites are left alone.

usage: check-links.py DIRECTORY
"""
import html.parser
import os
import sys
import urllib.parse


class Page(html.parser.HTMLParser):
    """What one page links to, and the ids that it offers."""

    def __init__(self, path):
        super().__init__()
        self.links = []  # of (line, target)
        self.ids = set()
        with open(path, encoding="utf-8") as file:
            self.feed(file.read())

    def handle_starttag(self, tag, attributes):
        for name, value in attributes:
            if value is None:
                continue
            if name in ("href", "src"):
                self.links.append((self.getpos()[0], value))
            elif name == "id" or (name == "name" and tag == "a"):
                self.ids.add(value)


def main(directory):
    pages = {}
    for folder, _, names in os.walk(directory):
        for name in names:
            if name.endswith(".html"):
                path = os.path.join(folder, name)
                pages[path] = Page(path)

    count = 0
    broken = 0
    for path, page in sorted(pages.items()):
        for line, link in page.links:
            parts = urllib.parse.urlsplit(link)
            if parts.scheme or parts.netloc:
                continue
            count += 1
            target = path
            if parts.path:
                relative = urllib.parse.unquote(parts.path)
                target = os.path.normpath(os.path.join(os.path.dirname(path), relative))
            place = urllib.parse.unquote(parts.fragment)
            if not os.path.isfile(target):
                problem = "no such file"
            elif place and target in pages and place not in pages[target].ids:
                problem = "no such place in the page"
            else:
                continue
            broken += 1
            print(f"{path}:{line}: {problem}: {link}", file=sys.stderr)
    print(f"{count} links in {len(pages)} pages, {broken} broken")
    return 0 if count > 0 and broken == 0 else 1


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit("usage: check-links.py DIRECTORY")
    sys.exit(main(sys.argv[1]))
