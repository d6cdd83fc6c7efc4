#!/usr/bin/python3
"""A file system with a flaw, for tests of programs that write into it: a folder shown at another place.

usage: odd_file_system.py FOLDER MOUNT_POINT [case-blind] [names=N] [quota=BYTES] [seconds] [gate=FILE] [slow=MS]

    case-blind    "File" and "file" are one name
    names=N       no name is longer than N bytes
    quota=BYTES   no more than so much may be written
    seconds       the time of writing is kept in whole seconds, and no time of change besides it
    gate=FILE     as long as FILE is there, whoever reads content waits, and FILE.met is made
    slow=MS       reading content takes so long each time; FILE.far of the gate says how far the last reading came

Serves until it is unmounted. Needs python3-fusepy.
"""

import errno
import os
import sys
import time

from fusepy import FUSE, FuseOSError, Operations


class OddFileSystem(Operations):
    def __init__(self, folder, flaws):
        self.folder = folder
        self.is_case_blind = "case-blind" in flaws
        self.longest_name = self.number(flaws, "names", 255)
        self.quota = self.number(flaws, "quota", 1 << 60)
        self.has_seconds = "seconds" in flaws
        self.pause = self.number(flaws, "slow", 0) / 1000
        self.gate = next((flaw.split("=", 1)[1] for flaw in flaws if flaw.startswith("gate=")), None)

    @staticmethod
    def number(flaws, name, usual):
        given = [flaw.split("=")[1] for flaw in flaws if flaw.startswith(name + "=")]
        return int(given[0]) if given else usual

    def init(self, path):
        print("mounted", flush=True)

    def real(self, path):
        at = os.fsencode(self.folder)
        for name in os.fsencode(path).split(b"/"):
            if len(name) > self.longest_name:
                raise FuseOSError(errno.ENAMETOOLONG)
            if name and self.is_case_blind and os.path.isdir(at):
                same = [there for there in os.listdir(at) if there.lower() == name.lower()]
                name = same[0] if same else name
            at = os.path.join(at, name) if name else at
        return at

    def getattr(self, path, fh=None):
        found = os.lstat(self.real(path))
        names = "mode ino nlink uid gid size blocks rdev".split()
        attributes = {"st_" + name: getattr(found, "st_" + name) for name in names}
        for stamp in "atime", "mtime", "ctime":
            attributes["st_" + stamp] = getattr(found, "st_" + stamp + "_ns")
        if self.has_seconds:
            whole = attributes["st_mtime"] // 1000000000 * 1000000000
            attributes["st_mtime"] = attributes["st_ctime"] = whole
        return attributes

    def readdir(self, path, fh):
        return [".", ".."] + os.listdir(os.fsdecode(self.real(path)))

    def readlink(self, path):
        return os.fsdecode(os.readlink(self.real(path)))

    def mkdir(self, path, mode):
        if os.path.lexists(self.real(path)):
            raise FuseOSError(errno.EEXIST)
        os.mkdir(self.real(path), mode)

    def mknod(self, path, mode, dev):
        os.mknod(self.real(path), mode, dev)

    def symlink(self, path, target):
        os.symlink(target, self.real(path))

    def link(self, path, of):
        os.link(self.real(of), self.real(path), follow_symlinks=False)

    def rename(self, old, new):
        source, target = self.real(old), self.real(new)
        os.rename(source, target)

    def unlink(self, path):
        os.unlink(self.real(path))

    def rmdir(self, path):
        os.rmdir(self.real(path))

    def chmod(self, path, mode):
        os.chmod(self.real(path), mode)

    def chown(self, path, uid, gid):
        os.chown(self.real(path), uid, gid, follow_symlinks=False)

    def utimens(self, path, times=None):
        os.utime(self.real(path), ns=times, follow_symlinks=False)

    def open(self, path, flags):
        return os.open(self.real(path), flags & ~(os.O_CREAT | os.O_EXCL | os.O_NOFOLLOW | os.O_APPEND))

    def create(self, path, mode, fi=None):
        return os.open(self.real(path), os.O_RDWR | os.O_CREAT | os.O_EXCL, mode)

    def read(self, path, size, offset, fh):
        if self.gate and os.path.exists(self.gate):
            open(self.gate + ".met", "w").close()
        while self.gate and os.path.exists(self.gate):
            time.sleep(0.01)
        time.sleep(self.pause)
        if self.gate and self.pause:
            with open(self.gate + ".far", "w") as far:
                far.write(str(offset))
        return os.pread(fh, size, offset)

    def write(self, path, data, offset, fh):
        grown = max(0, offset + len(data) - os.fstat(fh).st_size)
        if grown > self.quota - self.used():
            raise FuseOSError(errno.EDQUOT)
        return os.pwrite(fh, data, offset)

    def used(self):
        files = (os.path.join(top, name) for top, _, names in os.walk(os.fsencode(self.folder)) for name in names)
        return sum(os.lstat(file).st_size for file in files)

    def truncate(self, path, length, fh=None):
        os.truncate(self.real(path) if fh is None else fh, length)

    def fsync(self, path, datasync, fh):
        os.fsync(fh)

    def release(self, path, fh):
        os.close(fh)


class Passed(OddFileSystem):
    """The system's own error numbers."""

    def __call__(self, operation, *arguments):
        try:
            return super().__call__(operation, *arguments)
        except FuseOSError:
            raise
        except OSError as fault:
            raise FuseOSError(fault.errno)


Passed.use_ns = True
FUSE(Passed(sys.argv[1], sys.argv[3:]), sys.argv[2], foreground=True, nothreads=True, use_ino=True, attr_timeout=0,
     entry_timeout=0, allow_other=True)
