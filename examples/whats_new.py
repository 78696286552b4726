#!/usr/bin/env python3
"""An application's "What's new" after an update, in Python through velcan's C interface, with
the standard library's ctypes alone.
   whats_new.py LIBRARY INSTALLED_VERSION [FILE]
LIBRARY: libvelcan.so.1 (or its path), velcan.dll on Windows."""
import ctypes
import sys


class Velcan:
    """The C calls this program uses, with their types."""

    def __init__(self, library):
        lib = ctypes.CDLL(library)
        history = ctypes.c_void_p
        lib.velcan_last_error.restype = ctypes.c_char_p
        lib.velcan_version_compare.argtypes = [ctypes.c_char_p, ctypes.c_char_p]
        lib.velcan_version_is_valid.argtypes = [ctypes.c_char_p]
        lib.velcan_history_read_file.argtypes = [ctypes.c_char_p, ctypes.POINTER(history)]
        lib.velcan_history_newer_than.argtypes = [history, ctypes.c_char_p,
                                                  ctypes.POINTER(history)]
        lib.velcan_history_free.argtypes = [history]
        lib.velcan_history_count.argtypes = [history]
        lib.velcan_history_count.restype = ctypes.c_size_t
        lib.velcan_history_newest.argtypes = [history]
        lib.velcan_history_newest.restype = ctypes.c_int
        for name in ("number", "date"):
            call = getattr(lib, "velcan_history_" + name)
            call.argtypes = [history, ctypes.c_size_t]
            call.restype = ctypes.c_char_p
        lib.velcan_history_description_count.argtypes = [history, ctypes.c_size_t]
        lib.velcan_history_description_count.restype = ctypes.c_size_t
        lib.velcan_history_description.argtypes = [history, ctypes.c_size_t, ctypes.c_size_t]
        lib.velcan_history_description.restype = ctypes.c_char_p
        self.lib = lib

    def compare(self, a, b):
        return self.lib.velcan_version_compare(a.encode(), b.encode())

    def is_version(self, text):
        return self.lib.velcan_version_is_valid(text.encode()) == 1

    def read(self, path):
        """The versions of the history at path, as (number, date, [descriptions]) tuples."""
        handle = ctypes.c_void_p()
        if self.lib.velcan_history_read_file(path.encode(), ctypes.byref(handle)) != 0:
            raise OSError(self.lib.velcan_last_error().decode())
        try:
            return self._versions(handle)
        finally:
            self.lib.velcan_history_free(handle)

    def newer_than(self, path, installed):
        """The versions of the history at path newer than installed."""
        handle = ctypes.c_void_p()
        newer = ctypes.c_void_p()
        if self.lib.velcan_history_read_file(path.encode(), ctypes.byref(handle)) != 0:
            raise OSError(self.lib.velcan_last_error().decode())
        try:
            if self.lib.velcan_history_newer_than(handle, installed.encode(),
                                                  ctypes.byref(newer)) != 0:
                raise ValueError(self.lib.velcan_last_error().decode())
            try:
                return self._versions(newer)
            finally:
                self.lib.velcan_history_free(newer)
        finally:
            self.lib.velcan_history_free(handle)

    def _versions(self, handle):
        lib = self.lib
        return [(lib.velcan_history_number(handle, i).decode(),
                 lib.velcan_history_date(handle, i).decode(),
                 [lib.velcan_history_description(handle, i, d).decode()
                  for d in range(lib.velcan_history_description_count(handle, i))])
                for i in range(lib.velcan_history_count(handle))]


def main(argv):
    if len(argv) < 3:
        sys.exit("usage: whats_new.py LIBRARY INSTALLED_VERSION [FILE]")
    velcan = Velcan(argv[1])
    path = argv[3] if len(argv) > 3 else "version-history.xml"
    try:
        news = velcan.newer_than(path, argv[2])
    except (OSError, ValueError) as error:
        sys.exit("whats_new.py: %s" % error)
    if not news:
        print("%s is the newest version." % argv[2])
        return
    newest = news[0][0]
    for number, _, _ in news:
        if velcan.compare(number, newest) > 0:
            newest = number
    print("What's new from %s to %s:" % (argv[2], newest))
    for number, date, descriptions in news:
        print("\n%s (%s)" % (number, date))
        for description in descriptions:
            print("  - %s" % " ".join(description.split()))


if __name__ == "__main__":
    main(sys.argv)
