// The text of a symbolic link, as the path of the running program is told.
#ifndef QIV_SYS_EXE_PATH_H
#define QIV_SYS_EXE_PATH_H

namespace qiv {

/** Does for any link what QIV_GetCurExePath() does for that of the running program. */
int CopyLinkText(const char* link, char* buffer, int size) noexcept;

}  // namespace qiv

#endif
