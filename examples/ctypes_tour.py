#!/usr/bin/env python3
"""The library from Python: its C functions serve every language that can call C.

usage: ctypes_tour.py [LIBRARY]      default: libqiv.so.1, where the system's loader finds it

Calls some functions of four families, checks what they do, and ends with 0 when all of it is right.
"""
import calendar
import ctypes
import socket
import sys
import time
from ctypes import POINTER, Structure, byref, c_char_p, c_int, c_longlong, c_size_t, c_uint, c_void_p

OK = 0
FOREVER = -1  # for a wait for an event

# What a pool runs: void* work(void*). While it runs, Python has to keep the object alive.
Work = ctypes.CFUNCTYPE(c_void_p, c_void_p)


class Address(Structure):
    """QIV_ADDR_T: an IPv4 or IPv6 endpoint. Only functions look into its 28 bytes."""
    _fields_ = [("words", c_uint * 7)]


class Calendar(Structure):
    """QIV_TIME_EXP_T"""
    _fields_ = [("tm_" + name, c_int) for name in (
        "usec", "sec", "min", "hour", "mday", "mon", "year", "wday", "yday", "isdst", "gmtoff")]


class HashItem(Structure):
    """struct QIV_HSEARCH_ITEM: the table keeps the pointer, so the text must outlive the table."""
    _fields_ = [("key", c_char_p), ("data", c_uint)]


# Result and arguments of each function that is used, as in its header.
FUNCTIONS = {
    "QIV_Init": (c_int, []),
    "QIV_Fini": (c_int, []),
    "QIV_MakeAddrByString": (c_int, [c_int, c_char_p, c_uint, POINTER(Address)]),
    "QIV_GetAddrStringEx": (c_char_p, [POINTER(Address), c_char_p, c_uint]),
    "QIV_GetAddrPort": (ctypes.c_ushort, [POINTER(Address)]),
    "QIV_TimeNow": (c_longlong, []),
    "QIV_ExpTimeFromTimeGMT": (c_int, [c_longlong, POINTER(Calendar)]),
    "QIV_StrFmtTime": (c_int, [c_char_p, POINTER(c_size_t), c_size_t, c_char_p, POINTER(Calendar)]),
    "QIV_SimpleHashCreate": (c_int, [c_uint, POINTER(c_void_p)]),
    "QIV_SimpleHashEnter": (c_int, [POINTER(HashItem), c_void_p]),
    "QIV_SimpleHashFind": (c_int, [c_char_p, POINTER(c_uint), c_void_p]),
    "QIV_SimpleHashRemove": (c_int, [c_char_p, c_void_p]),
    "QIV_SimpleHashDestroy": (c_int, [c_void_p]),
    "QIV_CreateEvent": (c_void_p, [c_int]),
    "QIV_SetEvent": (c_int, [c_void_p]),
    "QIV_WaitForSingleObject": (c_int, [c_void_p, c_int]),
    "QIV_CloseEvent": (c_int, [c_void_p]),
    "QIV_ThreadPool_Create": (c_void_p, [c_uint, c_uint]),
    "QIV_ThreadPool_WorkEx": (c_int, [c_void_p, Work, c_void_p, c_int]),
    "QIV_ThreadPool_Destroy": (c_int, [c_void_p]),
}


def load(path):
    library = ctypes.CDLL(path)
    for name, (result, arguments) in FUNCTIONS.items():
        function = getattr(library, name)
        function.restype = result
        function.argtypes = arguments
    return library


def check(holds, what):
    if not holds:
        sys.exit(f"ctypes_tour: wrong: {what}")


def show_addresses(qiv):
    for family, text, shortest in ((socket.AF_INET, "192.0.2.7", "192.0.2.7"),
                                   (socket.AF_INET6, "2001:DB8:0::0007", "2001:db8::7")):
        address = Address()
        check(qiv.QIV_MakeAddrByString(family, text.encode(), 8080, byref(address)) == OK, text)
        buffer = ctypes.create_string_buffer(64)
        result = qiv.QIV_GetAddrStringEx(byref(address), buffer, len(buffer))
        print(f"address: {text} is {buffer.value.decode()} port {qiv.QIV_GetAddrPort(byref(address))}")
        check(result == shortest.encode(), "the text of the address")
        check(qiv.QIV_GetAddrPort(byref(address)) == 8080, "the port")
    refused = qiv.QIV_MakeAddrByString(socket.AF_INET6, b"2001:db8::x", 0, byref(Address()))
    check(refused != OK, "what is no address is refused")


def show_time(qiv):
    now = qiv.QIV_TimeNow()
    record = Calendar()
    check(qiv.QIV_ExpTimeFromTimeGMT(now, byref(record)) == OK, "the calendar time")
    text = ctypes.create_string_buffer(64)
    length = c_size_t()
    qiv.QIV_StrFmtTime(text, byref(length), len(text), b"%Y-%m-%d %H:%M:%S", byref(record))
    print(f"time: {now} us are {text.value.decode()} UTC and {record.tm_usec} us")
    parsed = calendar.timegm(time.strptime(text.value.decode(), "%Y-%m-%d %H:%M:%S"))
    check(parsed * 1_000_000 + record.tm_usec == now, "the time and its text")
    check(abs(now / 1_000_000 - time.time()) < 60, "the clock")


def show_hash_table(qiv):
    table = c_void_p()
    check(qiv.QIV_SimpleHashCreate(10, byref(table)) == OK, "the table")
    heights = {b"Everest": 8849, b"Denali": 6190, b"Vinson": 4892}
    items = [HashItem(name, height) for name, height in heights.items()]
    for item in items:
        check(qiv.QIV_SimpleHashEnter(byref(item), table) == OK, "an entry")
    found = c_uint()
    for name, height in heights.items():
        check(qiv.QIV_SimpleHashFind(name, byref(found), table) == OK, "an entry is found")
        check(found.value == height, "the value of an entry")
    print(f"hash table: {len(heights)} entries, Vinson is {found.value} m high")
    check(qiv.QIV_SimpleHashRemove(b"Vinson", table) == OK, "an entry is removed")
    check(qiv.QIV_SimpleHashFind(b"Vinson", byref(found), table) != OK, "it is gone")
    qiv.QIV_SimpleHashDestroy(table)


def show_thread_pool(qiv):
    """Threads of the library call Python. ctypes takes Python's lock for each such call, and lets
    it go while this thread waits inside the library."""
    count = 20
    squares = []
    all_done = qiv.QIV_CreateEvent(0)
    pool = qiv.QIV_ThreadPool_Create(2, 4)
    check(all_done and pool, "the event and the pool")

    @Work
    def square(number):
        squares.append((number or 0) ** 2)  # ctypes reads a null pointer as None
        if len(squares) == count:
            qiv.QIV_SetEvent(all_done)
        return None

    for number in range(count):
        wait_for_a_worker = 1
        check(qiv.QIV_ThreadPool_WorkEx(pool, square, number, wait_for_a_worker) == OK, "an item")
    check(qiv.QIV_WaitForSingleObject(all_done, FOREVER) == OK, "the wait for all items")
    print(f"thread pool: {len(squares)} items, the sum of their squares is {sum(squares)}")
    check(sorted(squares) == [number ** 2 for number in range(count)], "the squares")
    check(qiv.QIV_ThreadPool_Destroy(pool) == OK, "the end of the pool")
    qiv.QIV_CloseEvent(all_done)


def main():
    qiv = load(sys.argv[1] if len(sys.argv) > 1 else "libqiv.so.1")
    check(qiv.QIV_Init() == OK, "the start")
    show_addresses(qiv)
    show_time(qiv)
    show_hash_table(qiv)
    show_thread_pool(qiv)
    check(qiv.QIV_Fini() == OK, "the stop")
    print("all of it is right")


if __name__ == "__main__":
    main()
