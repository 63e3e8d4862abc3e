"""The Python reader against the files of frame_files.tsv, and on files that are replaced."""
import errno
import mmap
import os
import pathlib
import struct
import subprocess
import sys
import tempfile
import time
import unittest
import unittest.mock

import numpy

FOLDER = pathlib.Path(__file__).resolve().parent
SOURCES = FOLDER.parents[2]
sys.dont_write_bytecode = True  # The folder of the reader is packed as it is.
sys.path.insert(0, str(SOURCES / "examples/camera"))
from frame_reader import (  # noqa: E402: the path comes first
    FILE_SIZE, HEADER_SIZE, MAX_FRAME_SIZE, Frame, FrameReader, PictureState, ReadResult, UsageSignal, default_path,
    now_ms)

LIMIT_SECONDS = 60
HEADER = struct.Struct("<6IQI")
TIMESTAMP_OFFSET = 40
SEQUENCE_OFFSET = 24
VALID_HEADER = (0x4C545356, 2, 1280, 720, 1280, 1382400, 2, 0)


def named(kind, name):
    """The member of an enumeration with the name that the header has for it: NewFrame is NEW_FRAME."""
    return kind["".join("_" + each if each.isupper() else each for each in name).strip("_").upper()]


def read_cases():
    for line in (FOLDER / "frame_files.tsv").read_text().splitlines():
        if line and not line.startswith("#"):
            name, size, header, age, change, results, state, sequence = line.split("\t")
            yield {
                "name": name, "size": None if size == "-" else int(size),
                "header": tuple(int(value, 0) for value in header.split()), "age_ms": int(age),
                "change": None if change == "-" else int(change, 0),
                "results": [named(ReadResult, result) for result in results.split()],
                "state": named(PictureState, state), "sequence": None if sequence == "-" else int(sequence, 0),
            }


def buffer_bytes(number):
    index = numpy.arange(MAX_FRAME_SIZE, dtype=numpy.uint64)
    return ((31 * index + index // 256 + 7 * number) % 256).astype(numpy.uint8)


BUFFERS = [buffer_bytes(number) for number in range(2)]


def write_file(path, header, size=FILE_SIZE):
    """Puts a new file there, all at once; its time stamp."""
    timestamp = now_ms()
    content = bytearray(FILE_SIZE + 1)
    HEADER.pack_into(content, 0, *header)
    struct.pack_into("<Q", content, TIMESTAMP_OFFSET, timestamp)
    for number, buffer in enumerate(BUFFERS):
        start = HEADER_SIZE + number * MAX_FRAME_SIZE
        content[start:start + MAX_FRAME_SIZE] = buffer.tobytes()
    written = path.with_name("written")
    written.write_bytes(content[:size])
    written.replace(path)
    return timestamp


class ChangingReader(FrameReader):
    """Stores another sequence while its first copy is made."""

    def __init__(self, path, change):
        super().__init__(path)
        self._change = change

    def _copy(self, header):
        copied = super()._copy(header)
        if self._change is not None:
            with open(self._path, "r+b") as file:
                file.seek(SEQUENCE_OFFSET)
                file.write(struct.pack("<Q", self._change))
            self._change = None
        return copied


class FrameReaderTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.path = self.folder / "frame-buffer.bin"

    def reader(self, path=None):
        reader = FrameReader(path or self.path)
        self.addCleanup(reader.close)
        return reader

    def wait_for(self, condition):
        end = time.monotonic() + LIMIT_SECONDS
        while not condition():
            self.assertLess(time.monotonic(), end)
            time.sleep(0.001)

    def test_each_file_of_the_table_is_read_as_it_says(self):
        cases = list(read_cases())
        self.assertGreater(len(cases), 20)
        for case in cases:
            with self.subTest(case["name"]):
                self.path.unlink(missing_ok=True)
                at_ms = case["age_ms"]
                if case["size"] is not None:
                    at_ms += write_file(self.path, case["header"], case["size"])
                with ChangingReader(self.path, case["change"]) as reader:
                    frame = reader.read()
                    self.assertEqual(reader.result, case["results"][0])
                    self.assertEqual(frame and frame.sequence, case["sequence"])
                    self.assertIsNone(reader.read())
                    self.assertEqual(reader.result, case["results"][1])
                    self.assertEqual(reader.state(at_ms), case["state"])
                    if frame is not None:
                        _, _, width, height, _, size, _, active = case["header"]
                        self.assertEqual((frame.width, frame.height), (width, height))
                        self.assertEqual(frame.nv12.shape, (height * 3 // 2, width))
                        self.assertTrue(numpy.array_equal(frame.nv12.ravel(), BUFFERS[min(active, 1)][:size]))

    def test_a_frame_stays_as_it_was_read(self):
        write_file(self.path, VALID_HEADER)
        frame = self.reader().read()
        with open(self.path, "r+b") as file, mmap.mmap(file.fileno(), FILE_SIZE) as written:
            written[HEADER_SIZE:] = bytes(FILE_SIZE - HEADER_SIZE)
        self.assertTrue(numpy.array_equal(frame.nv12.ravel(), BUFFERS[0][:1382400]))

    def test_retries_are_counted(self):
        write_file(self.path, VALID_HEADER[:6] + (7, 0))
        reader = self.reader()
        reader.read()
        self.assertEqual(reader.retry_count, 4)

    def test_says_why_the_file_cannot_be_opened(self):
        missing = self.reader(self.folder / "none" / "file")
        self.assertIsNone(missing.read())
        self.assertEqual((missing.state(), missing.system_error), (PictureState.MISSING, 2))
        folder = self.reader(self.folder)
        self.assertIsNone(folder.read())
        self.assertEqual(folder.result, ReadResult.NO_FILE)

    def test_says_that_access_is_denied(self):
        reader = self.reader()
        # In the system's place: for the user root nothing is denied.
        with unittest.mock.patch("frame_reader.os.open", side_effect=PermissionError(errno.EACCES, "denied")):
            self.assertIsNone(reader.read())
        self.assertEqual((reader.state(), reader.system_error), (PictureState.DENIED, errno.EACCES))

    def test_opens_the_new_file_when_the_file_was_replaced(self):
        write_file(self.path, VALID_HEADER)
        reader = self.reader()
        self.assertIsNotNone(reader.read())
        self.path.rename(self.folder / "old.bin")
        write_file(self.path, VALID_HEADER[:7] + (1,))
        frames = []
        self.wait_for(lambda: frames.append(reader.read()) or frames[-1] is not None)
        self.assertTrue(numpy.array_equal(frames[-1].nv12.ravel(), BUFFERS[1][:1382400]))

    def test_notices_that_the_file_was_removed(self):
        write_file(self.path, VALID_HEADER)
        reader = self.reader()
        frame = reader.read()
        self.path.unlink()
        self.wait_for(lambda: reader.read() is None and reader.result == ReadResult.NO_FILE)
        self.assertEqual(reader.state(frame.timestamp_ms + 2001), PictureState.MISSING)

    def test_colors_are_bt601_with_limited_range(self):
        for y, u, v, rgb in [(16, 128, 128, (0, 0, 0)), (235, 128, 128, (255, 255, 255)), (81, 90, 240, (255, 0, 0)),
                             (145, 54, 34, (0, 255, 0)), (41, 240, 110, (0, 0, 255)), (0, 128, 128, (0, 0, 0))]:
            nv12 = numpy.full((1080, 1280), y, numpy.uint8)
            nv12[720:, 0::2] = u
            nv12[720:, 1::2] = v
            picture = Frame(nv12, 1280, 720, 2, 0).rgb()
            self.assertEqual(picture.shape, (720, 1280, 3))
            self.assertEqual(picture.dtype, numpy.uint8)
            difference = numpy.abs(picture.astype(int) - numpy.array(rgb))
            self.assertLessEqual(difference.max(), 2, rgb)

    def test_each_pair_colors_its_block_of_four_pixels(self):
        nv12 = numpy.full((1080, 1280), 128, numpy.uint8)
        nv12[720 + 3, 2 * 5] = 240  # U of the block in column 5 and row 3
        picture = Frame(nv12, 1280, 720, 2, 0).rgb().astype(int)
        rows, columns = numpy.nonzero(picture[:, :, 2] - picture[0, 0, 2])
        self.assertEqual((set(rows), set(columns)), ({6, 7}, {10, 11}))

    def test_the_default_path_follows_program_data(self):
        before = os.environ.get("ProgramData")
        self.addCleanup(lambda: os.environ.pop("ProgramData") if before is None
                        else os.environ.__setitem__("ProgramData", before))
        for folder, expected in [("/data", "/data"), ("x" * 259, "x" * 259), ("x" * 260, "C:\\ProgramData"),
                                 ("", "C:\\ProgramData")]:
            os.environ["ProgramData"] = folder
            self.assertEqual(default_path(), os.path.join(expected, "Vistel", "frame-buffer.bin"))

    @unittest.skipIf(os.name == "nt", "Windows has the event")
    def test_there_is_no_event_to_signal_here(self):
        signal = UsageSignal()
        self.assertFalse(signal.is_open)
        signal.signal()
        signal.close()

    def test_the_program_prints_frames_and_why_there_is_none(self):
        program = subprocess.Popen([sys.executable, "-B", SOURCES / "examples/camera/frame_reader.py", self.path],
                                   stdout=subprocess.PIPE, text=True)
        self.addCleanup(program.stdout.close)
        self.addCleanup(program.wait)
        self.addCleanup(program.kill)
        self.assertEqual(program.stdout.readline(), "there is no frame file: the receiver has not run here (error 2)\n")
        write_file(self.path, VALID_HEADER)
        self.assertRegex(program.stdout.readline(), r"^frame 1: 1280 x 720, \d+ ms old$")
        self.assertEqual(program.stdout.readline(), "the picture is live (error 0)\n")
        self.assertEqual(program.stdout.readline(),
                         "the receiver is not running, or its page sends no frames (error 0)\n")


if __name__ == "__main__":
    unittest.main()
