/* How frames are published in the shared frame file, as a model for Spin, which tries every order of events.

   What is modeled
   - The writer of frames/frame_file.cpp and frames/shared_frame_file.cpp, store by store, under the same names. It may
     be killed before any of its steps, up to KILLS times, and is then started again. Altogether it completes FRAMES
     frames, each of either size.
   - READERS readers like examples/camera/frame_reader.h, load by load, which try again and again.
   - The order of stores on x64. A plain store waits in the writer's store buffer, which it leaves first in, first out.
     Those of a block copy or a block clearing may be streaming ones: they arrive at any time and in any order. An
     interlocked operation and a barrier wait for all of them.

   What is promised, and asserted
   - What a reader accepts is one whole frame: geometry, time stamp and every part of the picture.
   - `activeBuffer` names a whole frame at any time, also while the sequence is odd and after a kill.
   - When the writer has come to its end, the sequence is even and every reader's next attempt gets the newest frame.

   What is simplified, and why that hides nothing
   - Two geometry fields for four; three parts for a buffer, two of which a small frame fills. A mixture of many pieces
     shows in two of them.
   - A frame is a number, which its parts and its time stamp hold, and no two frames have the same.
   - Readers store nothing. None can change what another sees, so that one stands for all.
   - x64 keeps the order of loads, and the reader's fences keep the compiler from changing it; only those of one block
     copy are made in any order here.
   - A kill takes no store back: all that was stored has arrived long before the next process opens the file.
   - A publish depends on the past only by what is in the file. Three frames use each buffer again; two kills let the
     writer that recovers die as well.
   - Magic and version are right from the start. A new file, all zero, has no valid geometry either. FOREIGN_FILE starts
     from a file that another program or version has left: an even sequence and no valid geometry.
   - A reader gives an attempt up when it sees that the sequence has changed, for the second look would refuse it
     anyway. PATIENT_READER does not, and a test of its own compares.

   What is not promised
   - A reset takes the sequence back to 0, so that it comes to the same values again. A reader that is held up in the
     middle of a copy until the writer has been killed in a change of geometry, started again, and has published as
     often as before, accepts a mixed frame. Therefore no reset begins here while an attempt is under way, except with
     RESET_DURING_AN_ATTEMPT, which shows that limit.

   WEAK_ORDER is a processor on which stores arrive in any order and an interlocked operation is no barrier. Publishing
   needs one more barrier there, after the opening increment, and has it there; it has none for x64, where the
   interlocked operation is one. Each other name that is tested here and never defined is one mistake.
   CMakeLists.txt lists them; the check has to find every one. */

#ifndef FRAMES
#define FRAMES 3
#endif
#ifndef KILLS
#define KILLS 2
#endif
#ifndef READERS
#define READERS 1
#endif

/* Even frames are small and odd ones large; frame 0 is a cleared buffer. A size is the number of parts. */
#define Small 2
#define Large 3
#define SizeOf(frame) (Small + (frame) % 2)

/* The cells of the file. Spin numbers them from the last, Width, which is 1. */
mtype = { Buffer1Part2, Buffer1Part1, Buffer1Part0, Buffer0Part2, Buffer0Part1, Buffer0Part0,
          Timestamp, ActiveBuffer, Sequence, FrameSize, Width };
#define CellLimit 12
#define Part(buffer, index) (Buffer0Part0 + Large * (buffer) + (index))

byte memory[CellLimit]; /* what others read */
byte newest[CellLimit]; /* what the writer reads: its last store, arrived or not */

chan storeBuffer = [6] of { byte, byte }; /* plain stores under way: cell, value */
bool streaming[CellLimit]; /* the newest value of the cell is under way, in no order with others */
byte streamCount;
#define AllArrived (empty(storeBuffer) && streamCount == 0)

byte kills;
byte attempts; /* readers between their two looks */

/* For the assertions only. */
byte completed; /* frames published to the end */
byte newestFrame; /* the last of them */
bool resetting; /* from the start of a reset to the next frame */

#define IsWhole(buffer) \
    (memory[Part(buffer, 1)] == memory[Part(buffer, 0)] && \
     (SizeOf(memory[Part(buffer, 0)]) == Small || memory[Part(buffer, 2)] == memory[Part(buffer, 0)]))

/* ---- Stores and their way to memory. Each of the writer's steps is one of these four, or death. ---- */

#define OrDie :: atomic { kills < KILLS -> kills++; printf("writer is killed\n"); goto killed }

inline Arrive(cell, value) {
    memory[cell] = value;
    assert(resetting || IsWhole(memory[ActiveBuffer]))
}

/* A store of what is there already cannot be seen to arrive. */
inline Stream(cell, value) {
    if
    :: d_step {
           printf("writer stores %e = %d\n", cell, value);
           if
           :: newest[cell] != value && !streaming[cell] -> streaming[cell] = true; streamCount++
           :: else
           fi;
           newest[cell] = value
       }
    OrDie
    fi
}

inline Barrier() {
    if
    :: AllArrived
    OrDie
    fi
}

#ifdef WEAK_ORDER
inline Store(cell, value) { Stream(cell, value) }
inline Interlocked(cell, value) { Stream(cell, value) }
#else
inline Store(cell, value) {
    if
    :: atomic {
           storeBuffer ! cell, value;
           newest[cell] = value;
           printf("writer stores %e = %d\n", cell, newest[cell])
       }
    OrDie
    fi
}
inline Interlocked(cell, value) {
    if
    :: atomic {
           AllArrived ->
           newest[cell] = value;
           printf("writer exchanges %e = %d\n", cell, newest[cell]);
           Arrive(cell, newest[cell])
       }
    OrDie
    fi
}
#endif

inline StreamArrives(cell) {
    streaming[cell] ->
    streaming[cell] = false;
    streamCount--;
    printf("arrived: %e = %d\n", cell, newest[cell]);
    Arrive(cell, newest[cell])
}

active proctype Memory() {
    byte cell;
    byte value;
end:
    do
#ifdef WEAK_ORDER
    :: atomic { StreamArrives(Width) }
    :: atomic { StreamArrives(FrameSize) }
#else
    :: atomic {
           storeBuffer ? cell, value ->
           printf("arrived: %e = %d\n", cell, value);
           Arrive(cell, value);
           cell = 0;
           value = 0
       }
#endif
    :: atomic { StreamArrives(Sequence) }
    :: atomic { StreamArrives(ActiveBuffer) }
    :: atomic { StreamArrives(Timestamp) }
    :: atomic { StreamArrives(Buffer0Part0) }
    :: atomic { StreamArrives(Buffer0Part1) }
    :: atomic { StreamArrives(Buffer0Part2) }
    :: atomic { StreamArrives(Buffer1Part0) }
    :: atomic { StreamArrives(Buffer1Part1) }
    :: atomic { StreamArrives(Buffer1Part2) }
    od
}

/* ---- The writer. ---- */

#define IsHeaderValid (newest[Width] == newest[FrameSize] && newest[Width] != 0)

inline StoreGeometry(size) {
    Store(Width, size);
    Store(FrameSize, size)
}

inline ResetFrameFile() {
#ifdef RESET_DURING_AN_ATTEMPT
    resetting = true;
#else
    atomic { attempts == 0 -> resetting = true }
#endif
    Stream(Sequence, 0);
    Stream(ActiveBuffer, 0);
    Stream(Timestamp, 0);
    Stream(Buffer0Part0, 0);
    Stream(Buffer0Part1, 0);
    Stream(Buffer0Part2, 0);
    Stream(Buffer1Part0, 0);
    Stream(Buffer1Part1, 0);
    Stream(Buffer1Part2, 0);
#ifndef BARRIER_IN_RESET_LEFT_OUT
    Barrier();
#endif
    StoreGeometry(Small)
}

inline OpenSharedFrameFile() {
    if
    :: !IsHeaderValid -> ResetFrameFile()
    :: else
    fi
}

#ifdef RECOVERY_LEFT_OUT
#define OpeningIncrement 1
#else
#define OpeningIncrement (1 + newest[Sequence] % 2) /* a sequence that a dead writer left odd stays odd */
#endif

#ifdef ACTIVE_BUFFER_WRITTEN_TO
#define Target newest[ActiveBuffer]
#else
#define Target (1 - newest[ActiveBuffer])
#endif

inline BeginFrame(size) {
#ifdef GEOMETRY_BEFORE_OPENING_INCREMENT
    StoreGeometry(size);
#endif
#ifdef RECOVERY_THROUGH_EVEN
    if
    :: newest[Sequence] % 2 != 0 -> Interlocked(Sequence, newest[Sequence] + 1)
    :: else
    fi;
#endif
#if defined(OPENING_INCREMENT_PLAIN)
    Store(Sequence, newest[Sequence] + OpeningIncrement);
#elif !defined(OPENING_INCREMENT_LEFT_OUT)
    Interlocked(Sequence, newest[Sequence] + OpeningIncrement);
    Barrier(); /* on x64 a part of the interlocked operation */
#endif
    resetting = false;
#ifndef GEOMETRY_BEFORE_OPENING_INCREMENT
    StoreGeometry(size);
#endif
    buffer = Target
}

inline CopyFrame() {
    Stream(Part(buffer, 0), frame);
    Stream(Part(buffer, 1), frame);
    if
    :: SizeOf(frame) == Large -> Stream(Part(buffer, 2), frame)
    :: else
    fi
}

/* What follows the copy is a barrier by itself on x64, interlocked as it is. */
#ifdef NO_BARRIER_OF_ANY_KIND
#define BARRIERS_LEFT_OUT
#define Exchange Store
#else
#define Exchange Interlocked
#endif

#ifdef BARRIERS_LEFT_OUT
#define BARRIER_BEFORE_INDEX_LEFT_OUT
#define BARRIER_BEFORE_LAST_INCREMENT_LEFT_OUT
#endif

inline LastIncrement() {
#ifndef LAST_INCREMENT_LEFT_OUT
    Exchange(Sequence, newest[Sequence] + 1)
#else
    skip
#endif
}

inline CompleteFrame() {
#ifndef BARRIER_BEFORE_INDEX_LEFT_OUT
    Barrier();
#endif
#if !defined(INDEX_LEFT_OUT) && !defined(INDEX_BEFORE_COPY) && !defined(INDEX_AFTER_LAST_INCREMENT)
    Exchange(ActiveBuffer, buffer);
#endif
#if !defined(TIMESTAMP_LEFT_OUT) && !defined(TIMESTAMP_AFTER_LAST_INCREMENT)
    Exchange(Timestamp, frame);
#endif
#ifndef BARRIER_BEFORE_LAST_INCREMENT_LEFT_OUT
    Barrier();
#endif
    LastIncrement()
#ifdef INDEX_AFTER_LAST_INCREMENT
    ; Exchange(ActiveBuffer, buffer)
#endif
#ifdef TIMESTAMP_AFTER_LAST_INCREMENT
    ; Exchange(Timestamp, frame)
#endif
}

inline PublishFrame() {
    atomic {
        lastNumber++;
        if
        :: frame = 2 * lastNumber
        :: frame = 2 * lastNumber + 1
        fi
    }
    BeginFrame(SizeOf(frame));
#ifdef INDEX_BEFORE_COPY
    Exchange(ActiveBuffer, buffer);
#endif
    CopyFrame();
    CompleteFrame();
    atomic { completed++; newestFrame = frame; frame = 0; buffer = 0 }
}

#ifdef FOREIGN_FILE
#define OldSequence 100
inline Lay(cell, value) {
    newest[cell] = value;
    memory[cell] = value
}
inline LayForeignFile() {
    d_step {
        Lay(Width, Large);
        Lay(FrameSize, Small);
        Lay(Sequence, OldSequence);
        Lay(ActiveBuffer, 1);
        Lay(Timestamp, 200);
        Lay(Buffer0Part0, 201);
        Lay(Buffer0Part1, 202);
        Lay(Buffer1Part0, 203);
        Lay(Buffer1Part1, 204)
    }
}
#endif

active proctype Writer() {
    byte lastNumber;
    byte frame;
    byte buffer;

#ifdef FOREIGN_FILE
    LayForeignFile();
#endif
start:
    OpenSharedFrameFile();
    do
    :: completed < FRAMES -> PublishFrame()
    :: else -> goto done
    od;
killed:
    atomic { AllArrived -> frame = 0; buffer = 0; goto start }
done:
    AllArrived;
    assert(memory[Sequence] != 0 && memory[Sequence] % 2 == 0)
}

/* ---- Readers. ---- */

inline GiveUpIfChanged() {
#ifdef PATIENT_READER
    skip
#else
    if
    :: memory[Sequence] != sequence -> goto refused
    :: else
    fi
#endif
}

#define Once(bit) atomic { !(loaded & (bit)) -> loaded = loaded | (bit); GiveUpIfChanged()

inline LoadHeader() {
    do
    :: Once(1); width = memory[Width] }
    :: Once(2); frameSize = memory[FrameSize] }
    :: Once(4); buffer = memory[ActiveBuffer] }
    :: Once(8); timestamp = memory[Timestamp] }
    :: loaded == 15 -> loaded = 0; break
    od
}

inline LoadBuffer() {
    loaded = (frameSize == Large -> 0 : 4);
    do
    :: Once(1); copy[0] = memory[Part(buffer, 0)] }
    :: Once(2); copy[1] = memory[Part(buffer, 1)] }
    :: Once(4); copy[2] = memory[Part(buffer, 2)] }
    :: loaded == 7 -> loaded = 0; break
    od
}

#ifdef ODD_SEQUENCE_READ
#define IsReadable(sequence) (sequence != 0)
#else
#define IsReadable(sequence) (sequence != 0 && sequence % 2 == 0)
#endif

inline LoadSequence() { sequence = memory[Sequence] }

inline SecondLook() {
#ifdef SECOND_LOOK_LEFT_OUT
    skip
#else
    atomic {
        if
        :: memory[Sequence] != sequence -> goto refused
        :: else
        fi
    }
#endif
}

active [READERS] proctype Reader() {
    byte sequence;
    byte width;
    byte frameSize;
    byte buffer;
    byte timestamp;
    byte copy[Large];
    byte loaded; /* fields or parts so far, one bit each */
    bool last; /* this attempt began after the writer's end */

end:
    atomic {
        IsReadable(memory[Sequence]) ->
        LoadSequence();
        attempts++;
        last = (completed == FRAMES && AllArrived);
        printf("reader finds Sequence = %d\n", sequence)
    }
    LoadHeader();
#ifdef FIRST_LOOK_AFTER_HEADER
    atomic {
        LoadSequence();
        if
        :: !IsReadable(sequence) -> goto refused
        :: else
        fi
    }
#endif
#ifdef SECOND_LOOK_BEFORE_COPY
    SecondLook();
#endif
    if
    :: width == frameSize && width != 0 -> LoadBuffer()
#ifdef FOREIGN_FILE
    :: else -> goto refused
#else
    :: else
#endif
    fi;
#ifndef SECOND_LOOK_BEFORE_COPY
    SecondLook();
#endif
    atomic {
        printf("reader accepts Width = %d, FrameSize = %d, Timestamp = %d, parts %d %d %d of buffer %d\n",
               width, frameSize, timestamp, copy[0], copy[1], copy[2], buffer);
        assert(width == frameSize && width == SizeOf(timestamp) &&
               copy[0] == timestamp && copy[1] == timestamp && (width == Small || copy[2] == timestamp));
        assert(!last || timestamp == newestFrame);
        last = false
    }
refused:
    atomic {
        assert(!last);
        attempts--;
        sequence = 0;
        width = 0;
        frameSize = 0;
        buffer = 0;
        timestamp = 0;
        copy[0] = 0;
        copy[1] = 0;
        copy[2] = 0;
        loaded = 0;
        goto end
    }
}
