"""A camera that prints a JSON line for every frame: its sequence, its digest, and how many attempts have failed so far;
also one when it has found a frame incomplete for about a second. After SIGUSR1 it stops itself in the middle of its
next copy.

    python stopping_reader.py FRAME_FILE
"""
import hashlib
import json
import os
import pathlib
import signal
import sys
import time

import numpy

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[3] / "examples/camera"))

from frame_reader import FrameReader, ReadResult

PATIENCE_READS = 1000


class StoppingReader(FrameReader):
    stops = False

    def _copy(self, header):
        start = super()._copy(header)
        if not self.stops:
            return start
        StoppingReader.stops = False
        os.kill(os.getpid(), signal.SIGSTOP)
        end = super()._copy(header)
        middle = len(start) // 2
        return numpy.concatenate([start[:middle], end[middle:]])


def stop_in_next_copy(*_):
    StoppingReader.stops = True


signal.signal(signal.SIGUSR1, stop_in_next_copy)
with StoppingReader(sys.argv[1]) as reader:
    busy_reads = 0
    while True:
        frame = reader.read()
        busy_reads = busy_reads + 1 if reader.result == ReadResult.BUSY else 0
        if frame is not None:
            digest = hashlib.sha1(frame.nv12).hexdigest()
            print(json.dumps({"sequence": frame.sequence, "digest": digest, "retries": reader.retry_count}), flush=True)
        elif busy_reads == PATIENCE_READS:
            print('{"waits": true}', flush=True)
        time.sleep(0.001)
