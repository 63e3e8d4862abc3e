/* The steps of a writer and of a reader of the shared frame file, in their order. This text is compiled twice:
   publishing.pml has Spin search it, and tests/frames/frame_file_model_test.cpp compares it, as C++, with what the
   processor does in frames/ and examples/camera/frame_reader.h. Each of the two defines what a step is.

   Stores of the writer: Store is a plain one; Stream one of a block operation, in no order with others; Interlocked one
   that also waits for all before it, as Barrier does without a store. ImpliedBarrier is a part of the interlocked
   operation on x64.

   Each name that is tested here and never defined is one mistake. CMakeLists.txt lists them. */

/* Even frames are small and odd ones large; frame 0 is a cleared buffer. A size is the number of parts. */
#define Small 2
#define Large 3
#define SizeOf(frame) (Small + (frame) % 2)
#define Part(buffer, index) (Buffer0Part0 + Large * (buffer) + (index))

/* Magic and version. */
#define OurFormat 1

#define IsGeometryValid(width, frameSize) ((width) == (frameSize) && (width) != 0)
#ifdef FORMAT_UNCHECKED_BY_WRITER
#define IsValidForWriter(format, width, frameSize) IsGeometryValid(width, frameSize)
#else
#define IsValidForWriter(format, width, frameSize) ((format) == OurFormat && IsGeometryValid(width, frameSize))
#endif
#ifdef FORMAT_UNCHECKED_BY_READER
#define IsValidForReader(format, width, frameSize) IsGeometryValid(width, frameSize)
#else
#define IsValidForReader(format, width, frameSize) ((format) == OurFormat && IsGeometryValid(width, frameSize))
#endif

/* ---- The writer. `newest` has its last store to each cell; it publishes `frame` and chooses `buffer`. ---- */

STEPS_WITH(StoreGeometry, size)
    Store(Width, size);
    Store(FrameSize, size);
END_STEPS

STEPS(ResetFrameFile)
#ifdef GEOMETRY_BEFORE_CLEARING
    Store(Format, OurFormat);
    StoreGeometry(Small);
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
#ifndef GEOMETRY_BEFORE_CLEARING
    Store(Format, OurFormat);
    StoreGeometry(Small);
#endif
END_STEPS

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

STEPS_WITH(BeginFrame, size)
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
    ImpliedBarrier();
#endif
#ifndef GEOMETRY_BEFORE_OPENING_INCREMENT
    StoreGeometry(size);
#endif
    buffer = Target;
END_STEPS

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

STEPS(CompleteFrame)
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
#ifndef LAST_INCREMENT_LEFT_OUT
    Exchange(Sequence, newest[Sequence] + 1);
#endif
#ifdef INDEX_AFTER_LAST_INCREMENT
    Exchange(ActiveBuffer, buffer);
#endif
#ifdef TIMESTAMP_AFTER_LAST_INCREMENT
    Exchange(Timestamp, frame);
#endif
END_STEPS

STEPS(PublishFrame)
    BeginFrame(SizeOf(frame));
#ifdef INDEX_BEFORE_COPY
    Exchange(ActiveBuffer, buffer);
#endif
    CopyFrame();
    CompleteFrame();
END_STEPS

/* ---- A reader. It copies what `Sequence` at the first look allows, and accepts it at the second. ---- */

#if defined(ODD_SEQUENCE_READ)
#define IsReadable(sequence) ((sequence) != 0)
#elif defined(ZERO_SEQUENCE_READ)
#define IsReadable(sequence) ((sequence) % 2 == 0)
#else
#define IsReadable(sequence) ((sequence) != 0 && (sequence) % 2 == 0)
#endif

#if defined(SECOND_LOOK_CHECKS_PARITY)
#define IsStill(now, sequence) ((now) % 2 == 0)
#elif defined(SECOND_LOOK_ALLOWS_LATER)
#define IsStill(now, sequence) ((now) >= (sequence))
#else
#define IsStill(now, sequence) ((now) == (sequence))
#endif

/* The last sequence that was accepted or refused, until it is forgotten. */
#ifdef SEQUENCE_KEPT_AT_ZERO
#define AfterZero(lastSequence) lastSequence
#else
#define AfterZero(lastSequence) 0
#endif

/* LoadHeader loads each field once and LoadBuffer each byte, in any order. */
STEPS(ReadFrame)
    FirstLook();
#ifdef ACTIVE_BUFFER_BEFORE_FIRST_LOOK
    LoadActiveBuffer();
    FirstLookAgain();
#endif
    LoadHeader();
#ifdef FIRST_LOOK_AFTER_HEADER
    FirstLookAgain();
#endif
#if defined(SECOND_LOOK_LEFT_OUT)
    LoadBuffer();
#elif defined(SECOND_LOOK_BEFORE_COPY)
    SecondLook();
    LoadBuffer();
#elif defined(ACTIVE_BUFFER_LOADED_AFTER_SECOND_LOOK)
    SecondLook();
    LoadActiveBuffer();
    LoadBuffer();
#else
    LoadBuffer();
    SecondLook();
#endif
#ifdef TIMESTAMP_AFTER_SECOND_LOOK
    LoadTimestamp();
#endif
END_STEPS
