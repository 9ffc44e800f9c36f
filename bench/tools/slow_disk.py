#!/usr/bin/python3
# A slow disk for scripts/bench --fault slow-disk: mirrors a folder through FUSE and makes every
# call that changes a file (write, create, rename, fsync, ...) wait first, as a dying SD card or
# a saturated network share would. Runs in the foreground until unmounted.
#   slow_disk.py BACKING MOUNTPOINT [DELAY_MS]
import errno
import os
import sys
import time

from fusepy import FUSE, FuseOSError, Operations


class SlowDisk(Operations):
    def __init__(self, root, delay):
        self.root = root
        self.delay = delay

    def _path(self, path):
        return os.path.join(self.root, path.lstrip("/"))

    def _slow(self):
        time.sleep(self.delay)

    def __call__(self, operation, *arguments):
        try:
            return super().__call__(operation, *arguments)
        except OSError as error:
            raise FuseOSError(error.errno or errno.EIO)

    # Reads pass straight through.
    def access(self, path, mode):
        if not os.access(self._path(path), mode):
            raise FuseOSError(errno.EACCES)

    def getattr(self, path, fh=None):
        st = os.lstat(self._path(path))
        return {key: getattr(st, key) for key in ("st_atime", "st_ctime", "st_gid", "st_mode",
                                                  "st_mtime", "st_nlink", "st_size", "st_uid")}

    def readdir(self, path, fh):
        return [".", ".."] + os.listdir(self._path(path))

    def readlink(self, path):
        return os.readlink(self._path(path))

    def statfs(self, path):
        st = os.statvfs(self._path(path))
        return {key: getattr(st, key) for key in ("f_bavail", "f_bfree", "f_blocks", "f_bsize",
                                                  "f_favail", "f_ffree", "f_files", "f_flag",
                                                  "f_frsize", "f_namemax")}

    def open(self, path, flags):
        return os.open(self._path(path), flags)

    def read(self, path, size, offset, fh):
        os.lseek(fh, offset, os.SEEK_SET)
        return os.read(fh, size)

    def release(self, path, fh):
        return os.close(fh)

    # Everything that changes the disk waits.
    def chmod(self, path, mode):
        self._slow()
        return os.chmod(self._path(path), mode)

    def chown(self, path, uid, gid):
        self._slow()
        return os.chown(self._path(path), uid, gid)

    def create(self, path, mode, fi=None):
        self._slow()
        return os.open(self._path(path), os.O_WRONLY | os.O_CREAT | os.O_TRUNC, mode)

    def mkdir(self, path, mode):
        self._slow()
        return os.mkdir(self._path(path), mode)

    def rmdir(self, path):
        self._slow()
        return os.rmdir(self._path(path))

    def unlink(self, path):
        self._slow()
        return os.unlink(self._path(path))

    def symlink(self, name, target):
        self._slow()
        return os.symlink(target, self._path(name))

    def rename(self, old, new):
        self._slow()
        return os.rename(self._path(old), self._path(new))

    def link(self, target, name):
        self._slow()
        return os.link(self._path(name), self._path(target))

    def utimens(self, path, times=None):
        self._slow()
        return os.utime(self._path(path), times)

    def truncate(self, path, length, fh=None):
        self._slow()
        with open(self._path(path), "r+") as f:
            f.truncate(length)

    def write(self, path, data, offset, fh):
        self._slow()
        os.lseek(fh, offset, os.SEEK_SET)
        return os.write(fh, data)

    def flush(self, path, fh):
        self._slow()
        return os.fsync(fh)

    def fsync(self, path, fdatasync, fh):
        self._slow()
        return os.fsync(fh)


if __name__ == "__main__":
    if len(sys.argv) < 3:
        sys.exit("usage: slow_disk.py BACKING MOUNTPOINT [DELAY_MS]")
    delay = float(sys.argv[3]) / 1000 if len(sys.argv) > 3 else 0.2
    FUSE(SlowDisk(sys.argv[1], delay), sys.argv[2], foreground=True, nothreads=False,
         allow_other=True)
