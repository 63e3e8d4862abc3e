/* How frames are published in the shared frame file, as a model for Spin, which tries every order of events.

   What is modeled
   - The writer of frames/frame_file.cpp and frames/shared_frame_file.cpp, store by store, under the same names. It may
     be killed before any of its steps, up to KILLS times, and is then started again. Altogether it completes FRAMES
     frames, each of either size.
   - READERS readers like examples/camera/frame_reader.h, load by load, which try again and again.
   - The steps of both and their order are in publishing_steps.pml. A test compiles that file as C++ and compares it
     with the stores and loads of the program and of the reader.
   - The order of stores on x64. A plain store waits in the writer's store buffer, which it leaves first in, first out.
     Those of a block copy or a block clearing may be streaming ones: they arrive at any time and in any order. An
     interlocked operation and a barrier wait for all of them.

   What is promised, and asserted
   - What a reader accepts is one whole frame: geometry, time stamp and every part of the picture.
   - `activeBuffer` names a whole frame at any time, also while the sequence is odd and after a kill.
   - When the writer has come to its end, the sequence is even and every reader's next attempt gets the newest frame.
   - With RESIZED_FILE: the writer can always give the file its size. Windows truncates no file that a process maps.
   - With REMEMBERING_READER: a reader that skips the sequence of its last frame does not skip another frame, provided
     that it has read the sequence 0 of every reset.

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
   - Magic and version are one field, `Format`. Readers load it only with FOREIGN_FILE: otherwise it never changes.
   - A new file is all zero and has its size. FOREIGN_FILE starts from a file that another program or version has left:
     an even sequence, and no valid geometry or another format. RESIZED_FILE starts from a file that is too long, with a
     frame, or that was cut in its header; the one reader maps it when it has the right size.
   - Only REMEMBERING_READER, which is one, has a memory. The others read a frame again.
   - A reader gives an attempt up when it sees that the sequence has changed, for the second look would refuse it
     anyway. PATIENT_READER does not, and a test of its own compares.

   What is not promised
   - A reset takes the sequence back to 0, so that it comes to the same values again. A reader that is held up in the
     middle of a copy until the writer has been killed in a change of geometry, started again, and has published as
     often as before, accepts a mixed frame. Therefore no reset begins here while an attempt is under way, except with
     RESET_DURING_AN_ATTEMPT, which shows that limit.
   - A reader that does not look between a reset and the frame that has the sequence of its last one skips that frame.
     RESET_WITHOUT_A_LOOK shows that.
   - A file that another program has cut after the header, which remains valid: readers accept its last frame with zeros
     in it until there is another. FILE_CUT_IN_A_FRAME shows that.
   - Two writers at once, which TWO_WRITERS shows to mix frames. What they store is visible at once: they need no store
     buffer for that.

   WEAK_ORDER is a processor on which stores arrive in any order and an interlocked operation is no barrier. Publishing
   needs one more barrier there, after the opening increment, and has it there; it has none for x64, where the
   interlocked operation is one. Each other name that is tested here or in publishing_steps.pml and never defined is one
   mistake. CMakeLists.txt lists them; the check has to find every one. */

#ifndef FRAMES
#define FRAMES 3
#endif
#ifndef KILLS
#define KILLS 2
#endif
#ifndef READERS
#define READERS 1
#endif
#ifdef TWO_WRITERS
#define WRITERS 2
#else
#define WRITERS 1
#endif

/* The cells of the file. Spin numbers them from the last, Format, which is 1. */
mtype = { Buffer1Part2, Buffer1Part1, Buffer1Part0, Buffer0Part2, Buffer0Part1, Buffer0Part0,
          Timestamp, ActiveBuffer, Sequence, FrameSize, Width, Format };
#define CellLimit 13

byte memory[CellLimit]; /* what others read */
byte newest[CellLimit]; /* what the writer reads: its last store, arrived or not */

chan storeBuffer = [6] of { byte, byte }; /* plain stores under way: cell, value */
bool streaming[CellLimit]; /* the newest value of the cell is under way, in no order with others */
byte streamCount;
#define AllArrived (empty(storeBuffer) && streamCount == 0)

byte kills;
byte lastNumber; /* of a frame: half of it */
byte writersDone;
byte attempts; /* readers between their two looks */

#ifdef RESIZED_FILE
#define Exact 1
#define TooLong 2
byte fileSize; /* 0: too short */
byte mappings; /* of readers */
#endif

#ifdef REMEMBERING_READER
byte lastSequence; /* that the reader has accepted or refused; 0: none */
byte lastFrame; /* 0: refused */
byte resets;
byte resetsSeen; /* by the reader */
#define IsNew(sequence) ((sequence) != lastSequence)
#else
#define IsNew(sequence) true
#endif

/* For the assertions only. */
byte completed; /* frames published to the end */
byte newestFrame; /* the last of them */
bool resetting; /* from the start of a reset to the next frame */

#define IsWhole(buffer) \
    (memory[Part(buffer, 1)] == memory[Part(buffer, 0)] && \
     (SizeOf(memory[Part(buffer, 0)]) == Small || memory[Part(buffer, 2)] == memory[Part(buffer, 0)]))

#define STEPS(name) inline name() {
#define STEPS_WITH(name, parameter) inline name(parameter) {
#define END_STEPS }
#include "publishing_steps.pml"

/* ---- Stores and their way to memory. Each of the writer's steps is one of these four, or death. ---- */

#define OrDie :: atomic { kills < KILLS -> kills++; printf("writer is killed\n"); goto killed }

inline Arrive(cell, value) {
    memory[cell] = value;
    assert(resetting || IsWhole(memory[ActiveBuffer]))
}

#ifndef TWO_WRITERS
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
#endif

inline Barrier() {
    if
    :: AllArrived
    OrDie
    fi
}
inline ImpliedBarrier() { Barrier() }

#if defined(TWO_WRITERS)
inline Store(cell, value) {
    atomic {
        newest[cell] = value;
        printf("writer %d stores %e = %d\n", _pid, cell, newest[cell]);
        Arrive(cell, newest[cell])
    }
}
inline Stream(cell, value) { Store(cell, value) }
inline Interlocked(cell, value) { Store(cell, value) }
#elif defined(WEAK_ORDER)
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
    :: atomic { StreamArrives(Format) }
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

inline CopyFrame() {
    resetting = false;
    Stream(Part(buffer, 0), frame);
    Stream(Part(buffer, 1), frame);
    if
    :: SizeOf(frame) == Large -> Stream(Part(buffer, 2), frame)
    :: else
    fi
}

#ifdef RESIZED_FILE
inline SetFileSize() {
    if
    :: atomic {
           assert(fileSize != TooLong || mappings == 0);
           fileSize = Exact
       }
    OrDie
    fi
}
#endif

inline OpenSharedFrameFile() {
#ifdef RESIZED_FILE
    SetFileSize();
#endif
    if
    :: !IsValidForWriter(newest[Format], newest[Width], newest[FrameSize]) ->
#ifdef RESET_DURING_AN_ATTEMPT
       resetting = true;
#else
       atomic {
           attempts == 0 ->
           resetting = true
#ifdef REMEMBERING_READER
           ; resets++
#endif
       }
#endif
       ResetFrameFile()
    :: else
    fi
}

#if defined(FOREIGN_FILE) || defined(RESIZED_FILE)
#define OldSequence 100
#define OldFrame 200
inline Lay(cell, value) {
    newest[cell] = value;
    memory[cell] = value
}
inline LayFile(format, frameSize, lastPart) {
    d_step {
        Lay(Format, format);
        Lay(Width, SizeOf(OldFrame));
        Lay(FrameSize, frameSize);
        Lay(Sequence, OldSequence);
        Lay(ActiveBuffer, 1);
        Lay(Timestamp, OldFrame);
        Lay(Buffer1Part0, OldFrame);
        Lay(Buffer1Part1, lastPart)
    }
}
inline LayOldFile() {
    if
#ifdef FOREIGN_FILE
    :: LayFile(OurFormat, Large, OldFrame + 1)
    :: LayFile(OurFormat + 1, Small, OldFrame + 1)
#else
    :: LayFile(OurFormat, Small, OldFrame); fileSize = TooLong
    :: d_step { Lay(Format, OurFormat); Lay(Width, Large) } /* the rest is cut off */
#ifdef FILE_CUT_IN_A_FRAME
    :: LayFile(OurFormat, Small, 0)
#endif
#endif
    fi
}
#endif

active [WRITERS] proctype Writer() {
    byte frame;
    byte buffer;

#if defined(FOREIGN_FILE) || defined(RESIZED_FILE)
    LayOldFile();
#endif
start:
    OpenSharedFrameFile();
    do
    :: completed < FRAMES ->
       atomic {
           lastNumber++;
           if
           :: frame = 2 * lastNumber
           :: frame = 2 * lastNumber + 1
           fi
       }
       PublishFrame();
       atomic { completed++; newestFrame = frame; frame = 0; buffer = 0 }
    :: else -> goto done
    od;
killed:
    atomic { AllArrived -> frame = 0; buffer = 0; goto start }
done:
    atomic {
        AllArrived ->
        writersDone++;
        assert(writersDone < WRITERS || (memory[Sequence] != 0 && memory[Sequence] % 2 == 0))
#if defined(RESET_WITHOUT_A_LOOK)
        ; assert(lastSequence != memory[Sequence] || lastFrame == newestFrame)
#elif defined(REMEMBERING_READER)
        ; assert(lastSequence != memory[Sequence] || lastFrame == newestFrame || resetsSeen != resets)
#endif
    }
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

#ifdef FOREIGN_FILE
#define FormatFound format
#define AllFields 31
#else
#define FormatFound OurFormat
#define AllFields 15
#endif

inline LoadActiveBuffer() { buffer = memory[ActiveBuffer] }
inline LoadTimestamp() { timestamp = memory[Timestamp] }

inline LoadHeader() {
#ifdef ACTIVE_BUFFER_BEFORE_FIRST_LOOK
    loaded = 4;
#endif
    do
    :: Once(1); width = memory[Width] }
    :: Once(2); frameSize = memory[FrameSize] }
    :: Once(4); LoadActiveBuffer() }
    :: Once(8); LoadTimestamp() }
#ifdef FOREIGN_FILE
    :: Once(16); format = memory[Format] }
#endif
    :: loaded == AllFields -> loaded = 0; break
    od
}

/* Not a mistake: the second look refuses the copy when the two loads differ. */
#ifdef ACTIVE_BUFFER_LOADED_TWICE
#define AllParts 15
#else
#define AllParts 7
#endif

inline LoadBuffer() {
    if
    :: IsValidForReader(FormatFound, width, frameSize) ->
       loaded = (frameSize == Large -> 0 : 4);
       do
       :: Once(1); copy[0] = memory[Part(buffer, 0)] }
       :: Once(2); copy[1] = memory[Part(buffer, 1)] }
       :: Once(4); copy[2] = memory[Part(buffer, 2)] }
#ifdef ACTIVE_BUFFER_LOADED_TWICE
       :: Once(8); LoadActiveBuffer() }
#endif
       :: loaded == AllParts -> loaded = 0; break
       od
    :: else
    fi
}

inline LoadSequence() { sequence = memory[Sequence] }

inline FirstLook() {
    do
#ifdef REMEMBERING_READER
    :: atomic {
           memory[Sequence] == 0 && (lastSequence != 0 || resetsSeen != resets) ->
           lastSequence = AfterZero(lastSequence);
           resetsSeen = resets
       }
#endif
    :: atomic {
           IsReadable(memory[Sequence]) && IsNew(memory[Sequence]) ->
           LoadSequence();
           attempts++;
           last = (writersDone == WRITERS);
           printf("reader finds Sequence = %d\n", sequence);
           break
       }
    od
}

inline FirstLookAgain() {
    atomic {
        LoadSequence();
        if
        :: !IsReadable(sequence) -> goto refused
        :: else
        fi
    }
}

inline SecondLook() {
    atomic {
        if
        :: !IsStill(memory[Sequence], sequence) -> goto refused
        :: else
        fi
    }
}

inline Remember(frame) {
#ifdef REMEMBERING_READER
    lastSequence = sequence;
    lastFrame = frame;
    resetsSeen = resets
#else
    skip
#endif
}

active [READERS] proctype Reader() {
    byte sequence;
#ifdef FOREIGN_FILE
    byte format;
#endif
    byte width;
    byte frameSize;
    byte buffer;
    byte timestamp;
    byte copy[Large];
    byte loaded; /* fields or parts so far, one bit each */
    bool last; /* this attempt began after the writer's end */

#ifdef RESIZED_FILE
endUnmapped:
    atomic {
#ifndef SIZE_UNCHECKED
        fileSize == Exact ->
#endif
        mappings++
    }
#endif
end:
    ReadFrame();
    atomic {
#ifdef FOREIGN_FILE
        if
        :: !IsValidForReader(FormatFound, width, frameSize) -> Remember(0); goto refused
        :: else
        fi;
#endif
        printf("reader accepts Width = %d, FrameSize = %d, Timestamp = %d, parts %d %d %d of buffer %d\n",
               width, frameSize, timestamp, copy[0], copy[1], copy[2], buffer);
        assert(timestamp != 0 && width == frameSize && width == SizeOf(timestamp) &&
               copy[0] == timestamp && copy[1] == timestamp && (width == Small || copy[2] == timestamp));
        assert(!last || timestamp == newestFrame);
        Remember(timestamp);
        last = false
    }
refused:
    atomic {
        assert(!last);
        attempts--;
        sequence = 0;
#ifdef FOREIGN_FILE
        format = 0;
#endif
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
