"""Follows FILE, which camera_probe --play writes, with the Python reader until standard input ends, then prints what it
has seen as JSON: whole frames, frames that are mixtures of two, widths, and whether the picture was ever stale."""
import json
import pathlib
import sys
import threading
import time

import numpy

sys.dont_write_bytecode = True  # The folder of the reader is packed as it is.
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[3] / "examples/camera"))
from frame_reader import FrameReader, PictureState  # noqa: E402: the path comes first


def expected(frame):
    """The played frame of this number: see PlayedY in tools/camera_probe/frame_player.h."""
    y, x = numpy.indices((frame.height, frame.width), numpy.uint64)
    luma = (x // 8 + y // 8 + 3 * (frame.sequence // 2)).astype(numpy.uint8)
    return numpy.vstack([luma, numpy.full((frame.height // 2, frame.width), 128, numpy.uint8)])


def main():
    ended = threading.Event()
    threading.Thread(target=lambda: (sys.stdin.read(), ended.set()), daemon=True).start()
    seen = {"whole": 0, "mixed": 0, "widths": set(), "stale": False}
    with FrameReader(sys.argv[1]) as reader:
        while not ended.is_set():
            frame = reader.read()
            if frame is not None:
                seen["whole" if numpy.array_equal(frame.nv12, expected(frame)) else "mixed"] += 1
                seen["widths"].add(frame.width)
            seen["stale"] = seen["stale"] or (seen["whole"] > 0 and reader.state() == PictureState.STALE)
            time.sleep(0.001)
    print(json.dumps({**seen, "widths": sorted(seen["widths"])}))


main()
