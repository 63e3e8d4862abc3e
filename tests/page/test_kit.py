"""The page author's kit, examples/page/vistel_receiver.mjs: everything it posts, hears and promises."""

import pytest

SLOT_BYTES = 8294400
ALREADY_EXISTS = 0x800700B7
NOT_AVAILABLE = 0xC00D36D6
JPEG = "C:\\Users\\a\\Pictures\\Vistel\\Vistel-20240305-142709-042.jpg"
MP4 = "C:\\Users\\a\\Videos\\Vistel\\Vistel-20240305-142710-000.mp4"

# What the scripts below call: the kit's exports, one receiver, and everything that it has told.
PRELUDE = """
    window.kit = await import("/examples/page/vistel_receiver.mjs");
    window.heard = [];
    window.makeReceiver = () => {
        const receiver = new kit.VistelReceiver();
        for (const type of ["slots", "diagnostics", "usage", "media-result"]) {
            receiver.addEventListener(type, ({ detail }) => heard.push([type, detail]));
        }
        return receiver;
    };
    window.receiver = makeReceiver();
    // A frame whose every byte differs from its neighbours.
    window.makeFrame = (format, codedWidth, codedHeight, more = {}) => {
        const bytes = new Uint8Array(codedWidth * codedHeight * 4);
        bytes.forEach((_, index) => bytes[index] = index * 7);
        return new VideoFrame(bytes, { format, codedWidth, codedHeight, timestamp: 0, ...more });
    };
    // How a promise stands after everything that was under way has run.
    window.settle = async (promise) => {
        const state = { state: "pending" };
        promise.then((value) => Object.assign(state, { state: "resolved", value }),
            (error) => Object.assign(state, { state: "rejected", error: error.message, kind: error.constructor.name }));
        await new Promise((resolve) => setTimeout(resolve));
        return state;
    };
    window.outcome = (promise) => promise.catch((error) => `${error.constructor.name}: ${error.message}`);
    // Long waits end at once from here on.
    window.endLongWaits = () => {
        const { setTimeout } = window;
        window.setTimeout = (callback, ms, ...rest) => setTimeout(callback, ms > 1000 ? 1 : ms, ...rest);
    };
"""


@pytest.fixture
def kit(page):
    page.open("tests/page/blank.html")
    page.run(PRELUDE)
    return page


@pytest.fixture
def connected(kit):
    kit.run("""
        const done = receiver.connect();
        host.postBuffer(0);
        host.postBuffer(1);
        await done;
        host.posted.length = 0;
        heard.length = 0;""")
    return kit


# --- Connecting ---


def test_is_not_available_in_a_browser_without_a_host(bare_page):
    bare_page.open("tests/page/blank.html")
    assert bare_page.run("""
        const { VistelReceiver } = await import("/examples/page/vistel_receiver.mjs");
        let message;
        try {
            new VistelReceiver();
        } catch (error) {
            message = error.message;
        }
        return [VistelReceiver.available, message];""") == [False, "The page is not shown by the receiver"]


def test_is_available_in_the_receiver(kit):
    assert kit.get("kit.VistelReceiver.available") is True


def test_posts_nothing_by_itself(kit):
    assert kit.get("[host.posted, receiver.connected, receiver.slotSizes]") == [[], False, [0, 0]]


@pytest.mark.parametrize("first", [0, 1])
def test_connects_when_both_slots_are_there(kit, first):
    assert kit.run("""
        const done = receiver.connect();
        const steps = [[...host.posted]];
        host.postBuffer(args[0]);
        steps.push((await settle(done)).state, receiver.connected);
        host.postBuffer(1 - args[0]);
        steps.push((await settle(done)).state, receiver.connected, receiver.slotSizes);
        return steps;""", first) == [["ready"], "pending", False, "resolved", True, [SLOT_BYTES, SLOT_BYTES]]
    assert kit.get("heard") == [["slots", None]]


def test_takes_no_notice_of_other_buffers(kit):
    assert kit.run("""
        const done = receiver.connect();
        host.postBuffer(0);
        for (const data of [{ slot: 2 }, { slot: "1" }, { slot: null }, {}, undefined, null]) {
            host.postBufferWith(data, new ArrayBuffer(8));
        }
        return [(await settle(done)).state, receiver.slotSizes];""") == ["pending", [SLOT_BYTES, 0]]


def test_connects_anew_with_new_slots(connected):
    assert connected.run("""
        const done = receiver.connect();
        const steps = [receiver.connected, receiver.slotSizes];
        host.postBuffer(0, 1000);
        host.postBuffer(1, 2000);
        await done;
        return [...steps, host.posted, receiver.slotSizes, heard];""") == [
            False, [0, 0], ["ready"], [1000, 2000], [["slots", None]]]


def test_takes_slots_that_are_replaced_without_being_asked_for(connected):
    assert connected.run("""
        host.postBuffer(0, 1000);
        host.postBuffer(1, 2000);
        return receiver.slotSizes;""") == [1000, 2000]


def test_says_so_when_no_slots_arrive(kit):
    assert kit.run("endLongWaits(); return outcome(receiver.connect());") == "Error: ready: the receiver did not answer"
    assert kit.run("""
        const done = receiver.connect();
        host.postBuffer(0);
        host.postBuffer(1);
        return (await settle(done)).state;""") == "resolved"


# --- Frames ---


@pytest.mark.parametrize("frame, options, expected", [
    ("'I420', 64, 32", {}, "I420:64:32:0:0:0:64:32:0,64;2048,32;2560,32"),
    ("'I420A', 64, 32", {}, "I420A:64:32:0:0:0:64:32:0,64;2048,32;2560,32;3072,64"),
    ("'NV12', 64, 32", {}, "NV12:64:32:0:0:0:64:32:0,64;2048,64"),
    ("'RGBA', 64, 32", {}, "RGBA:64:32:0:0:0:64:32:0,256"),
    ("'RGBX', 64, 32", {}, "RGBX:64:32:0:0:0:64:32:0,256"),
    ("'BGRA', 64, 32", {}, "BGRA:64:32:0:0:0:64:32:0,256"),
    ("'BGRX', 64, 32", {}, "BGRX:64:32:0:0:0:64:32:0,256"),
    # Copied in a format that the receiver takes.
    ("'I422', 64, 32", {}, "RGBX:64:32:0:0:0:64:32:0,256"),
    ("'I444', 64, 32", {}, "RGBX:64:32:0:0:0:64:32:0,256"),
    # The display size is that of the turned picture.
    ("'I420', 64, 32, { rotation: 90 }", {}, "I420:64:32:0:90:0:32:64:0,64;2048,32;2560,32"),
    ("'I420', 64, 32, { rotation: 180 }", {}, "I420:64:32:0:180:0:64:32:0,64;2048,32;2560,32"),
    ("'I420', 64, 32, { rotation: 270, flip: true }", {}, "I420:64:32:1:270:0:32:64:0,64;2048,32;2560,32"),
    ("'I420', 64, 32, { flip: true }", {}, "I420:64:32:1:0:0:64:32:0,64;2048,32;2560,32"),
    ("'I420', 64, 32", {"mirror": True}, "I420:64:32:0:0:1:64:32:0,64;2048,32;2560,32"),
    ("'I420', 64, 32, { flip: true }", {"mirror": True}, "I420:64:32:1:0:1:64:32:0,64;2048,32;2560,32"),
    # Pixels that are not square.
    ("'I420', 64, 32, { displayWidth: 100, displayHeight: 30 }", {},
     "I420:64:32:0:0:0:100:30:0,64;2048,32;2560,32"),
    # Only what is to be seen is copied, cut to even edges.
    ("'I420', 64, 32, { visibleRect: { x: 2, y: 4, width: 31, height: 17 } }", {},
     "I420:30:16:0:0:0:31:17:0,30;480,15;600,15"),
    # Colours other than BT.601 limited range go as RGB when they are to be exact.
    ("'I420', 64, 32, { colorSpace: { matrix: 'bt709', fullRange: false } }", {"exactColors": True},
     "RGBX:64:32:0:0:0:64:32:0,256"),
    ("'I420', 64, 32, { colorSpace: { matrix: 'smpte170m', fullRange: true } }", {"exactColors": True},
     "RGBX:64:32:0:0:0:64:32:0,256"),
    ("'I420', 64, 32, { colorSpace: { matrix: 'smpte170m', fullRange: false } }", {"exactColors": True},
     "I420:64:32:0:0:0:64:32:0,64;2048,32;2560,32"),
    ("'I420', 64, 32, { colorSpace: { matrix: 'bt709', fullRange: false } }", {},
     "I420:64:32:0:0:0:64:32:0,64;2048,32;2560,32"),
    ("'BGRA', 64, 32", {"exactColors": True}, "BGRA:64:32:0:0:0:64:32:0,256"),
])
def test_describes_a_frame(connected, frame, options, expected):
    assert connected.run(f"""
        const frame = makeFrame({frame});
        return [await receiver.postFrame(frame, args[0]), host.posted, frame.codedWidth];""", options) == [
            True, [f"frame:0:{expected}"], 0]


@pytest.mark.parametrize("visible, expected", [
    ([0, 0, 64, 32], [0, 0, 64, 32]),
    ([0, 0, 63, 31], [0, 0, 62, 30]),
    ([1, 3, 32, 16], [2, 4, 30, 14]),
    ([1, 3, 33, 17], [2, 4, 32, 16]),
    ([2, 4, 1, 1], [2, 4, 0, 0]),
])
def test_cuts_to_even_edges_inside_the_visible_rectangle(kit, visible, expected):
    assert kit.run("""
        const { x, y, width, height } = kit.copyRectangle(new DOMRectReadOnly(...args[0]));
        return [x, y, width, height];""", visible) == expected


def test_makes_the_text_of_any_picture(kit):
    assert kit.get("kit.frameMessage(args[0])", {
        "slot": 1, "format": "NV12", "width": 1280, "height": 720, "flip": True, "rotation": 270, "mirror": False,
        "displayWidth": 720, "displayHeight": 1280,
        "planes": [{"offset": 0, "stride": 1280}, {"offset": 921600, "stride": 1280}],
    }) == "frame:1:NV12:1280:720:1:270:0:720:1280:0,1280;921600,1280"


def test_copies_the_picture_into_the_slot_it_names(connected):
    assert connected.run("""
        const wrong = [];
        for (const slot of [0, 1, 0]) {
            const whole = makeFrame("I420", 64, 32);
            const bytes = new Uint8Array(64 * 32 * 3 / 2);
            await whole.copyTo(bytes);
            whole.close();
            const visibleRect = { x: 2, y: 4 + 2 * slot, width: 30, height: 16 };
            await receiver.postFrame(makeFrame("I420", 64, 32, { visibleRect }));
            if (receiver.lastPicture.slot !== slot) {
                wrong.push(`slot ${receiver.lastPicture.slot}`);
            }
            const stored = new Uint8Array(host.buffers[slot]);
            const chroma = receiver.lastPicture.planes[1];
            for (let row = 0; row < 16; ++row) {
                for (let column = 0; column < 30; ++column) {
                    if (stored[row * 30 + column] !== bytes[(visibleRect.y + row) * 64 + 2 + column]) {
                        wrong.push(`luma ${column}, ${row}`);
                    }
                    if (stored[chroma.offset + (row >> 1) * chroma.stride + (column >> 1)] !==
                        bytes[64 * 32 + (visibleRect.y + row >> 1) * 32 + (2 + column >> 1)]) {
                        wrong.push(`chroma ${column}, ${row}`);
                    }
                }
            }
        }
        return [wrong, host.frames.map((text) => text.slice(0, 8)), receiver.framesPosted, receiver.framesDropped];
        """) == [[], ["frame:0:", "frame:1:", "frame:0:"], 3, 0]


def test_fills_a_slot_to_the_last_byte(connected):
    assert connected.run("return receiver.postFrame(makeFrame('RGBA', 1920, 1080));") is True
    assert connected.get("host.posted") == ["frame:0:RGBA:1920:1080:0:0:0:1920:1080:0,7680"]


def test_drops_frames_while_there_are_no_slots(kit):
    assert kit.run("""
        host.postBuffer(0);
        const frame = makeFrame("I420", 64, 32);
        return [await receiver.postFrame(frame), frame.codedWidth, receiver.framesDropped, host.posted];""") == [
            False, 0, 1, []]


def test_drops_a_frame_that_comes_while_another_is_copied(connected):
    assert connected.run("""
        const frames = [makeFrame("I420", 64, 32), makeFrame("I420", 64, 32)];
        const posted = await Promise.all(frames.map((frame) => receiver.postFrame(frame)));
        const { framesPosted, framesDropped } = receiver;
        return [posted, frames.map((frame) => frame.codedWidth), framesPosted, framesDropped];""") == [
            [True, False], [0, 0], 1, 1]
    assert connected.run("return receiver.postFrame(makeFrame('I420', 64, 32));") is True
    assert [text[:8] for text in connected.get("host.posted")] == ["frame:0:", "frame:1:"]


def test_drops_a_frame_whose_slot_is_replaced_during_the_copy(connected):
    assert connected.run("""
        const copying = receiver.postFrame(makeFrame("I420", 1280, 720));
        const done = receiver.connect();
        host.postBuffer(0);
        host.postBuffer(1);
        await done;
        return [await copying, host.posted, receiver.framesPosted, receiver.framesDropped];""") == [
            False, ["ready"], 0, 1]
    assert connected.run("return receiver.postFrame(makeFrame('I420', 64, 32));") is True


@pytest.mark.parametrize("frame, size", [
    ("'RGBA', 1922, 1080", "1922 x 1080"), # Two pixels more than the slot has room for.
    ("'I420', 4098, 64", "4098 x 64"),
    ("'I420', 64, 2162", "64 x 2162"),
    ("'I420', 64, 32, { displayWidth: 4097, displayHeight: 32 }", "64 x 32"),
    ("'I420', 64, 32, { displayWidth: 64, displayHeight: 4097 }", "64 x 32"),
    ("'I420', 64, 32, { visibleRect: { x: 0, y: 0, width: 1, height: 32 } }", "0 x 32"),
    ("'I420', 64, 32, { visibleRect: { x: 0, y: 0, width: 64, height: 1 } }", "64 x 0"),
])
def test_refuses_a_frame_that_the_receiver_would_not_take(connected, frame, size):
    assert connected.run(f"""
        const frame = makeFrame({frame});
        const format = frame.format;
        const refused = await outcome(receiver.postFrame(frame));
        return [refused.replace(format, "FORMAT"), frame.codedWidth, host.posted, receiver.framesPosted];""") == [
            f"RangeError: The receiver has no room for a FORMAT frame of {size}", 0, [], 0]
    assert connected.run("return receiver.postFrame(makeFrame('I420', 4096, 64));") is True


def test_passes_on_a_failing_copy_and_goes_on(connected):
    assert connected.run("""
        const { copyTo } = VideoFrame.prototype;
        VideoFrame.prototype.copyTo = async () => {
            throw new Error("no copy");
        };
        const frame = makeFrame("I420", 64, 32);
        const failed = await outcome(receiver.postFrame(frame));
        VideoFrame.prototype.copyTo = copyTo;
        return [failed, frame.codedWidth, await receiver.postFrame(makeFrame("I420", 64, 32)), host.posted.length];
        """) == ["Error: no copy", 0, True, 1]
    assert connected.get("host.posted")[0].startswith("frame:0:")


# --- Commands without an answer ---


@pytest.mark.parametrize("call, text", [
    ("setOrientation('landscape')", "window:orientation:landscape"),
    ("setOrientation('portrait')", "window:orientation:portrait"),
    ("setOrientation('setup')", "window:orientation:setup"),
    ("setQuality('720p')", "quality:720p"),
    ("setQuality('1080p')", "quality:1080p"),
    ("reportError('it is: broken')", "error:it is: broken"),
])
def test_posts_a_command(kit, call, text):
    kit.do(f"receiver.{call};")
    assert kit.get("host.posted") == [text]


@pytest.mark.parametrize("call", [
    "setOrientation('')", "setOrientation('Portrait')", "setOrientation(null)", "setQuality('480p')", "setQuality()",
])
def test_refuses_what_the_receiver_does_not_know(kit, call):
    assert kit.run(f"return outcome((async () => receiver.{call})());").startswith("TypeError: ")
    assert kit.get("host.posted") == []


# --- Snapshots and recordings ---


def result(action, success, path, error):
    return {"type": "media-result", "action": action, "success": success, "path": path, "error": error}


# Runs a call, lets the receiver say something, and returns how the call stands.
def answer(kit, call, *results):
    return kit.run(f"""
        const promise = receiver.{call};
        for (const result of args[0]) {{
            host.postJson(result);
        }}
        return settle(promise);""", results)


@pytest.mark.parametrize("call, text, action, path", [
    ("takeSnapshot()", "media:snapshot", "snapshot", JPEG),
    ("startRecording()", "media:record:start", "recording-started", MP4),
    ("stopRecording()", "media:record:stop", "recording-stopped", MP4),
])
def test_settles_a_media_command_on_its_result(kit, call, text, action, path):
    assert answer(kit, call)["state"] == "pending"
    assert kit.get("host.posted") == [text]
    kit.post_json(result(action, True, path, 0))
    assert kit.get("heard") == [["media-result", result(action, True, path, 0)]]

    succeeded = result(action, True, path, 0)
    assert answer(kit, call, succeeded) == {"state": "resolved", "value": succeeded}
    assert answer(kit, call, result(action, False, path, 0x80004005)) == {
        "state": "rejected", "kind": "MediaError", "error": f"{action}: 0x80004005 E_FAIL"}
    assert kit.get("host.posted") == [text] * 3


def test_tells_the_whole_result_with_the_error(kit):
    assert kit.run("""
        const asked = receiver.takeSnapshot();
        host.postMediaResult("snapshot", false, "", args[0]);
        const error = await asked.catch((error) => error);
        return [error instanceof kit.MediaError, error instanceof Error, error.name, error.result];""",
        NOT_AVAILABLE) == [True, True, "MediaError", result("snapshot", False, "", NOT_AVAILABLE)]


@pytest.mark.parametrize("code, text", [
    (0x80004001, "0x80004001 E_NOTIMPL"),
    (0x80070057, "0x80070057 E_INVALIDARG"),
    (ALREADY_EXISTS, "0x800700B7 ERROR_ALREADY_EXISTS"),
    (0x8007010B, "0x8007010B ERROR_DIRECTORY"),
    (NOT_AVAILABLE, "0xC00D36D6 MF_E_NOT_AVAILABLE"),
    (0x88982F8B, "0x88982F8B"),
    (1, "0x00000001"),
])
def test_names_an_error(kit, code, text):
    assert kit.get("kit.errorText(args[0])", code) == text


def test_ignores_results_of_other_commands_while_it_waits(kit):
    assert answer(kit, "takeSnapshot()", result("recording-stopped", True, MP4, 0),
                  result("recording-failed", False, MP4, 0x80004005))["state"] == "pending"
    assert answer(kit, "reportError('x') ?? Promise.resolve()")["state"] == "resolved"
    kit.post_json(result("snapshot", True, JPEG, 0))
    assert len(kit.get("heard")) == 3


def test_counts_a_stop_while_idle_as_a_success(kit):
    stopped = result("recording-stopped", True, "", 1)
    assert answer(kit, "stopRecording()", stopped) == {"state": "resolved", "value": stopped}


def test_knows_whether_a_recording_runs(kit):
    def after(call, *results):
        answer(kit, call, *results)
        return kit.get("receiver.recording")

    assert kit.get("receiver.recording") is False
    assert after("startRecording()", result("recording-started", False, MP4, 0x80004005)) is False
    assert after("startRecording()", result("recording-started", False, "", 0x8007010B)) is False
    assert after("startRecording()", result("recording-started", True, MP4, 0)) is True
    assert after("takeSnapshot()", result("snapshot", False, "", NOT_AVAILABLE)) is True
    assert after("startRecording()", result("recording-started", False, "", ALREADY_EXISTS)) is True
    assert after("stopRecording()", result("recording-stopped", False, MP4, 0x80004005)) is False
    # One that was started before the page was loaded.
    assert after("startRecording()", result("recording-started", False, "", ALREADY_EXISTS)) is True
    # A change of quality ends it unasked.
    assert after("setQuality('720p') ?? Promise.resolve()", result("recording-stopped", True, MP4, 0)) is False
    assert after("startRecording()", result("recording-started", True, MP4, 0)) is True
    # It fails by itself.
    kit.post_json(result("recording-failed", False, MP4, 0x80070070))
    assert kit.get("receiver.recording") is False
    assert kit.get("heard.at(-1)") == ["media-result", result("recording-failed", False, MP4, 0x80070070)]


def test_counts_the_frames_of_a_recording(connected):
    assert connected.run("""
        const post = () => receiver.postFrame(makeFrame("I420", 64, 32));
        const counts = [receiver.framesRecorded];
        const count = () => counts.push(receiver.framesRecorded);
        await post();
        receiver.startRecording();
        await post();
        host.postMediaResult("recording-started", true, "a", 0);
        count();
        await post();
        receiver.takeSnapshot(); // is no end
        await post();
        host.postMediaResult("snapshot", true, "b", 0);
        await post();
        count();
        receiver.startRecording().catch(() => {}); // nor is a start of what runs
        host.postMediaResult("recording-started", false, "", 0x800700B7);
        await post();
        receiver.stopRecording();
        await post();
        host.postMediaResult("recording-stopped", true, "a", 0);
        await post();
        count();
        receiver.stopRecording();
        host.postMediaResult("recording-stopped", true, "", 1);
        count();
        return counts;""") == [0, 1, 4, 5, 5]


@pytest.mark.parametrize("later", ["takeSnapshot()", "setQuality('720p')", "startRecording()", "stopRecording()"])
def test_counts_a_recording_up_to_the_quality_that_ends_it(connected, later):
    assert connected.run(f"""
        const post = () => receiver.postFrame(makeFrame("I420", 64, 32));
        receiver.startRecording();
        host.postMediaResult("recording-started", true, "a", 0);
        await post();
        receiver.setQuality("1080p");
        await post();
        receiver.{later};
        await post();
        host.postMediaResult("recording-stopped", true, "a", 0);
        return receiver.framesRecorded;""") == 1


@pytest.mark.parametrize("asked, frames", [("", 2), ("receiver.stopRecording();", 1)])
def test_counts_a_recording_up_to_its_failure(connected, asked, frames):
    assert connected.run(f"""
        const post = () => receiver.postFrame(makeFrame("I420", 64, 32));
        receiver.startRecording();
        host.postMediaResult("recording-started", true, "a", 0);
        await post();
        {asked}
        await post();
        host.postMediaResult("recording-failed", false, "a", 0x80070070);
        await post();
        return receiver.framesRecorded;""") == frames


def test_has_its_state_up_to_date_when_it_tells(kit):
    assert kit.run("""
        const seen = [];
        receiver.addEventListener("media-result", () => seen.push(receiver.recording));
        receiver.addEventListener("usage", () => seen.push(receiver.cameraInUse));
        receiver.addEventListener("diagnostics", () => seen.push(receiver.diagnostics.appVersion));
        host.postMediaResult("recording-started", true, "", 0);
        host.postMediaResult("recording-failed", false, "", 2147500037);
        host.postJson({ type: "virtual-camera-usage", active: true });
        host.postJson({ type: "diagnostics", diagnostics: { appVersion: "0.1.3" } });
        return seen;""") == [True, False, True, "0.1.3"]


def test_takes_the_stop_of_a_quality_change_for_its_own(kit):
    first = result("recording-stopped", True, MP4, 0)
    second = result("recording-stopped", True, "", 1)
    assert kit.run("""
        receiver.setQuality("1080p");
        const stopping = receiver.stopRecording();
        host.postJson(args[0]);
        host.postJson(args[1]);
        return settle(stopping);""", first, second) == {"state": "resolved", "value": first}
    started = result("recording-started", True, MP4, 0)
    assert answer(kit, "startRecording()", started) == {"state": "resolved", "value": started}
    assert kit.get("receiver.recording") is True


def test_posts_commands_in_the_order_of_the_calls_one_at_a_time(kit):
    assert kit.run("""
        const steps = [];
        const step = async () => {
            await new Promise((resolve) => setTimeout(resolve));
            steps.push(host.posted.splice(0).join());
        };
        const asked = [receiver.takeSnapshot(), receiver.takeSnapshot()];
        receiver.setQuality("1080p");
        asked.push(receiver.startRecording());
        receiver.setQuality("720p");
        asked.push(receiver.stopRecording());
        receiver.setOrientation("setup");
        const outcomes = Promise.all(asked.map(outcome));
        await step();
        host.postMediaResult("snapshot", true, "a", 0);
        await step();
        host.postMediaResult("snapshot", false, "b", 2147500037);
        await step();
        host.postMediaResult("recording-started", true, "c", 0);
        await step();
        host.postMediaResult("recording-stopped", true, "c", 0);
        await step();
        return [steps, (await outcomes).map((value) => value.path ?? value)];""") == [
            ["media:snapshot,window:orientation:setup", "media:snapshot", "quality:1080p,media:record:start",
             "quality:720p,media:record:stop", ""],
            ["a", "MediaError: snapshot: 0x80004005 E_FAIL", "c", "c"]]


@pytest.mark.parametrize("call, text", [
    ("takeSnapshot()", "media:snapshot"),
    ("startRecording()", "media:record:start"),
    ("stopRecording()", "media:record:stop"),
])
def test_gives_up_a_command_that_is_not_answered_and_goes_on(kit, call, text):
    assert kit.run(f"""
        const {{ setTimeout }} = window;
        endLongWaits();
        const asked = [receiver.{call}];
        window.setTimeout = setTimeout;
        receiver.setQuality("720p");
        asked.push(receiver.takeSnapshot());
        const failed = await outcome(asked[0]);
        host.postMediaResult("snapshot", true, "a", 0);
        return [failed, (await asked[1]).path, host.posted];""") == [
            f"Error: {text}: the receiver did not answer", "a", [text, "quality:720p", "media:snapshot"]]


def test_forgets_the_time_limit_of_an_answered_command(kit):
    assert kit.run("""
        const limits = new Set();
        const { setTimeout, clearTimeout } = window;
        window.setTimeout = (callback, ms, ...rest) => {
            const timer = setTimeout(callback, ms, ...rest);
            if (ms > 1000) {
                limits.add(timer);
            }
            return timer;
        };
        window.clearTimeout = (timer) => {
            limits.delete(timer);
            clearTimeout(timer);
        };
        const connecting = receiver.connect();
        host.postBuffer(0);
        host.postBuffer(1);
        const asked = receiver.takeSnapshot();
        host.postMediaResult("snapshot", true, "a", 0);
        Object.assign(window, { setTimeout, clearTimeout });
        return [limits.size, (await asked).path, await connecting];""") == [0, "a", None]


# --- What the receiver tells ---


def test_hears_the_diagnostics(kit):
    report = {"windowsVersion": "10.0.22631", "buildNumber": 22631, "architecture": "x64", "osSupported": True,
              "webView2Ready": True, "virtualCameraRegistered": False, "appVersion": "0.1.3"}
    assert kit.get("receiver.diagnostics") is None
    kit.post_json({"type": "diagnostics", "diagnostics": report})
    assert kit.get("heard") == [["diagnostics", report]]
    assert kit.get("receiver.diagnostics") == report


def test_hears_when_the_camera_is_used(kit):
    assert kit.get("receiver.cameraInUse") is False
    kit.post_json({"type": "virtual-camera-usage", "active": True})
    assert kit.get("receiver.cameraInUse") is True
    kit.post_json({"type": "virtual-camera-usage", "active": False})
    assert kit.get("receiver.cameraInUse") is False
    assert kit.get("heard") == [["usage", True], ["usage", False]]


def test_ignores_what_it_does_not_know(kit):
    kit.do("host.postMediaResult('recording-started', true, '', 0);")
    for message in ["text", None, 7, [], {}, {"type": "else"}, result("recording-paused", True, "", 0)]:
        kit.post_json(message)
    assert kit.get("receiver.recording") is True
    assert [kind for kind, _ in kit.get("heard")] == ["media-result", "media-result"]
