"""Reads the newest video frame from the shared frame file, as a virtual camera does. One file for Python 3.9 or newer
with numpy, on 64-bit Windows and on Linux. docs/frame-file.md describes the file.

    python frame_reader.py [FILE]

prints a line for every live frame, and one whenever the picture comes or goes. On Linux, where there is no receiver,
FILE is the one in the sandbox directory of a run: DIR/ProgramData/Vistel/frame-buffer.bin.
"""
import dataclasses
import enum
import mmap
import os
import sys
import time

import numpy

if os.name == "nt":
    import ctypes
    import msvcrt
    from ctypes import wintypes

    _TICKS = ctypes.WINFUNCTYPE(ctypes.c_uint64)(("GetTickCount64", ctypes.windll.kernel32))

MAX_FRAME_SIZE = 1920 * 1080 * 3 // 2
HEADER_SIZE = 64
FILE_SIZE = HEADER_SIZE + 2 * MAX_FRAME_SIZE
MAGIC = 0x4C545356  # the bytes "VSTL"
VERSION = 2
STALE_LIMIT_MS = 2000
EVENT_NAME = "Global\\VistelVirtualCameraSample-v1"

_MAX_ATTEMPTS = 4
_REPLACED_CHECK_MS = 1000  # without a new frame, until the path is looked at again
_ERROR_ACCESS_DENIED = 5


class ReadResult(enum.Enum):
    """What a call of FrameReader.read() has found."""

    NEW_FRAME = 0
    NO_NEW_FRAME = 1  # nothing was published since the last frame that was read
    BUSY = 2  # a frame is being written, or frames follow one another faster than they can be copied
    NO_FILE = 3  # FrameReader.state() tells why
    OTHER_VERSION = 4  # not a frame file, or one of another version; reported once for each change of the sequence
    DAMAGED = 5  # the header contradicts itself although no frame is being written; reported once in the same way


class PictureState(enum.Enum):
    """Why a camera has, or has not, a picture to show. The value is the text for people."""

    LIVE = "the picture is live"
    STALE = "the receiver is not running, or its page sends no frames"
    NO_FRAME_YET = "the receiver has not written a frame yet"
    MISSING = "there is no frame file: the receiver has not run here"
    DENIED = "access to the frame file is denied"
    WRONG_SIZE = "the frame file has the wrong size"
    OTHER_VERSION = "the frame file has another version"
    DAMAGED = "the frame file is damaged"
    FAILED = "the frame file cannot be opened"


def now_ms():
    """The clock of the frames' time stamps."""
    if os.name == "nt":
        return _TICKS()
    return time.clock_gettime_ns(time.CLOCK_MONOTONIC_RAW) // 1000000


def default_path():
    """The file of the receiver on this machine."""
    folder = os.environ.get("ProgramData", "")
    if not 0 < len(folder) < 260:
        folder = "C:\\ProgramData"
    return os.path.join(folder, "Vistel", "frame-buffer.bin")


@dataclasses.dataclass(frozen=True)
class Frame:
    """A whole frame, and nothing that changes later."""

    nv12: numpy.ndarray  # bytes; `height` rows of Y, then height / 2 rows of U,V pairs, all of them `width` long
    width: int
    height: int
    sequence: int  # grows by 2 with every frame
    timestamp_ms: int  # now_ms() of the writer when it had completed the frame

    def is_stale(self, limit_ms=STALE_LIMIT_MS, at_ms=None):
        """True for a frame that is no longer live. One in the future was made before the system was restarted."""
        at_ms = now_ms() if at_ms is None else at_ms
        return self.timestamp_ms > at_ms or at_ms - self.timestamp_ms > limit_ms

    def rgb(self):
        """The picture as an array of height x width x 3 bytes, red first: BT.601, limited range."""
        y = 298 * (self.nv12[:self.height].astype(numpy.int32) - 16) + 128
        pairs = self.nv12[self.height:].reshape(self.height // 2, self.width // 2, 2).astype(numpy.int32) - 128
        u, v = (pairs[:, :, i].repeat(2, axis=0).repeat(2, axis=1) for i in range(2))
        rgb = numpy.stack([y + 409 * v, y - 100 * u - 208 * v, y + 516 * u], axis=2) >> 8
        return rgb.clip(0, 255).astype(numpy.uint8)


class UsageSignal:
    """Tells the receiver that an application uses the camera: call signal() with every frame that is asked for. The
    receiver takes a silence of four seconds for the end. Only on Windows; elsewhere signal() does nothing."""

    _SECURITY = "D:(A;;GA;;;SY)(A;;GA;;;BA)(A;;GA;;;IU)(A;;0x0002;;;LS)"

    def __init__(self, name=EVENT_NAME):
        self._event = self._create(name) if os.name == "nt" else None

    @property
    def is_open(self):
        """False when the event can be neither opened nor created."""
        return bool(self._event)

    def signal(self):
        if self._event:
            ctypes.windll.kernel32.SetEvent(wintypes.HANDLE(self._event))

    def close(self):
        if self._event:
            ctypes.windll.kernel32.CloseHandle(wintypes.HANDLE(self._event))
            self._event = None

    @classmethod
    def _create(cls, name):
        class SecurityAttributes(ctypes.Structure):
            _fields_ = [("size", wintypes.DWORD), ("descriptor", ctypes.c_void_p), ("inherit", wintypes.BOOL)]

        # The first of camera and receiver creates the event; its security must let the other one in.
        descriptor = ctypes.c_void_p()
        ctypes.windll.advapi32.ConvertStringSecurityDescriptorToSecurityDescriptorW(
            ctypes.c_wchar_p(cls._SECURITY), wintypes.DWORD(1), ctypes.byref(descriptor), None)
        attributes = SecurityAttributes(ctypes.sizeof(SecurityAttributes), descriptor, False)
        create = ctypes.windll.kernel32.CreateEventExW
        create.restype = wintypes.HANDLE
        event = create(ctypes.byref(attributes) if descriptor else None, ctypes.c_wchar_p(name), wintypes.DWORD(0),
                       wintypes.DWORD(0x0002))  # EVENT_MODIFY_STATE: the camera may do no more than signal
        ctypes.windll.kernel32.LocalFree(descriptor)
        return event


def _open(path):
    """A file descriptor. On Windows the writer may still rename, replace and write the file, which open() forbids."""
    if os.name != "nt":
        return os.open(path, os.O_RDONLY)
    create = ctypes.WinDLL("kernel32", use_last_error=True).CreateFileW
    create.restype = wintypes.HANDLE
    generic_read, share_all, open_existing, normal = 0x80000000, 7, 3, 0x80
    handle = create(ctypes.c_wchar_p(path), wintypes.DWORD(generic_read), wintypes.DWORD(share_all), None,
                    wintypes.DWORD(open_existing), wintypes.DWORD(normal), None)
    if handle in (None, wintypes.HANDLE(-1).value):
        raise ctypes.WinError(ctypes.get_last_error())
    return msvcrt.open_osfhandle(handle, os.O_RDONLY)


class FrameReader:
    """For one thread at a time. Opens the file with the first read() that finds it, and the new file when it is
    replaced. Never waits for the writer."""

    def __init__(self, path=None):
        self.result = ReadResult.NO_FILE  # of the last read()
        self.system_error = 0  # the system's error code when the file could not be opened; else 0
        self.retry_count = 0  # attempts so far that found the sequence odd or changed
        self._path = default_path() if path is None else os.fspath(path)
        self._map = None
        self._identity = None  # of the file that is mapped
        self._file_state = PictureState.MISSING  # of the file itself; LIVE: nothing is wrong with it
        self._last_frame = None
        self._last_sequence = 0
        self._last_change_ms = 0  # when the path was last known to lead to the mapped file

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def read(self):
        """The newest frame unless it was read before, else None; `result` tells why."""
        frame = None
        if self._map is None and not self._open():
            self.result = ReadResult.NO_FILE
            return None
        self.result, frame = self._read_open_file()
        if frame is not None:
            self._last_change_ms = now_ms()
        elif self._is_replaced():
            self.close()
        return frame

    def state(self, at_ms=None):
        """Whether the last frame that was read is still live, and if not, why there is no newer one."""
        if self._last_frame is not None and not self._last_frame.is_stale(at_ms=at_ms):
            return PictureState.LIVE
        if self._map is None or self._file_state != PictureState.LIVE:
            return self._file_state
        return PictureState.NO_FRAME_YET if self._last_frame is None else PictureState.STALE

    def close(self):
        """Closes the file, which the next read() opens again."""
        if self._map is not None:
            self._words = self._header = self._bytes = None  # A map with a view of it cannot be closed.
            self._map.close()
            self._map = None
            self._file_state = PictureState.MISSING  # until another one is opened

    def _read_open_file(self):
        for _ in range(_MAX_ATTEMPTS):
            sequence = self._load_sequence()
            if sequence == 0:  # never written to, or just reset
                self._last_sequence = 0
                self._file_state = PictureState.LIVE
                return ReadResult.NO_NEW_FRAME, None
            if sequence == self._last_sequence:
                return ReadResult.NO_NEW_FRAME, None
            if sequence % 2 == 0:
                header = self._header[:12].copy()
                valid = self._is_valid(header)
                nv12 = self._copy(header) if valid else None
                if self._load_sequence() == sequence:
                    self._last_sequence = sequence
                    return self._accept(header, sequence, nv12) if valid else self._refuse(header)
            self.retry_count += 1
            time.sleep(0)
        return ReadResult.BUSY, None

    # One aligned load of eight bytes. The loads of an x86-64 processor stay in the program's order, and the interpreter
    # runs far more than a compiler could reorder between two of them.
    def _load_sequence(self):
        return int(self._words[3])

    def _copy(self, header):
        width, height, size = int(header[2]), int(header[3]), int(header[5])
        start = HEADER_SIZE + (0 if header[8] == 0 else MAX_FRAME_SIZE)
        return self._bytes[start:start + size].copy().reshape(height * 3 // 2, width)

    @staticmethod
    def _is_frame_file(header):
        return header[0] == MAGIC and header[1] == VERSION

    @classmethod
    def _is_valid(cls, header):
        width, height, stride, size = (int(value) for value in header[2:6])
        return (cls._is_frame_file(header) and (width, height) in ((1280, 720), (1920, 1080)) and stride == width and
                size == width * height * 3 // 2)

    def _accept(self, header, sequence, nv12):
        self._file_state = PictureState.LIVE
        timestamp = int(header[10]) + (int(header[11]) << 32)
        self._last_frame = Frame(nv12, int(header[2]), int(header[3]), sequence, timestamp)
        return ReadResult.NEW_FRAME, self._last_frame

    def _refuse(self, header):
        damaged = self._is_frame_file(header)
        self._file_state = PictureState.DAMAGED if damaged else PictureState.OTHER_VERSION
        return (ReadResult.DAMAGED if damaged else ReadResult.OTHER_VERSION), None

    def _open(self):
        self._file_state = PictureState.FAILED
        self.system_error = 0
        try:
            file = _open(self._path)
        except OSError as error:
            self.system_error = getattr(error, "winerror", None) or error.errno
            if isinstance(error, (FileNotFoundError, NotADirectoryError)):
                self._file_state = PictureState.MISSING
            elif isinstance(error, PermissionError) and self._is_denied():
                self._file_state = PictureState.DENIED
            return False
        try:
            found = os.fstat(file)
            # Only at its exact size: Windows does not let the writer truncate a longer file while a reader maps it.
            if found.st_size != FILE_SIZE:
                self._file_state = PictureState.WRONG_SIZE
                return False
            self._map = mmap.mmap(file, FILE_SIZE, access=mmap.ACCESS_READ)
            self._identity = (found.st_dev, found.st_ino)
        except OSError as error:
            self.system_error = getattr(error, "winerror", None) or error.errno
            return False
        finally:
            os.close(file)
        self._bytes = numpy.frombuffer(self._map, numpy.uint8)
        self._header = self._bytes[:HEADER_SIZE].view("<u4")
        self._words = self._bytes[:HEADER_SIZE].view("<u8")
        self._file_state = PictureState.LIVE
        self._last_sequence = 0
        self._last_change_ms = now_ms()
        return True

    # Windows reports a file that another program has locked as an error of permission too.
    def _is_denied(self):
        return os.name != "nt" or self.system_error == _ERROR_ACCESS_DENIED

    # True when the path leads to another file now, or to none. Looks once a second while there is no new frame.
    def _is_replaced(self):
        at_ms = now_ms()
        if at_ms - self._last_change_ms < _REPLACED_CHECK_MS:
            return False
        self._last_change_ms = at_ms
        try:
            file = _open(self._path)
        except (FileNotFoundError, NotADirectoryError):
            return True
        except OSError:
            return False
        try:
            found = os.fstat(file)
        finally:
            os.close(file)
        return (found.st_dev, found.st_ino) != self._identity


def main():
    usage = UsageSignal()
    shown = PictureState.LIVE
    with FrameReader(*sys.argv[1:2]) as reader:
        while True:
            usage.signal()  # as with every frame that an application asks a camera for
            frame = reader.read()
            state = reader.state()
            if frame is not None and state == PictureState.LIVE:
                print(f"frame {frame.sequence // 2}: {frame.width} x {frame.height}, "
                      f"{now_ms() - frame.timestamp_ms} ms old", flush=True)
            if state != shown:
                print(f"{state.value} (error {reader.system_error})", flush=True)
                shown = state
            time.sleep(0.01)


if __name__ == "__main__":
    try:
        main()
    except KeyboardInterrupt:
        pass
