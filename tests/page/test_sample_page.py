"""The sample page, examples/page/: it shows everything that it hears, and its buttons ask for everything."""

import re

import pytest
from selenium.webdriver.common.by import By

ADDRESS = "examples/page/index.html"
JPEG = "C:\\Users\\a\\Pictures\\Vistel\\Vistel-20240305-142709-042.jpg"
MP4 = "C:\\Users\\a\\Videos\\Vistel\\Vistel-20240305-142710-000.mp4"

DIAGNOSTICS = {"windowsVersion": "10.0.22631", "buildNumber": 22631, "architecture": "x64", "osSupported": True,
               "webView2Ready": True, "virtualCameraRegistered": True, "appVersion": "0.1.3"}


def open_page(page, query=""):
    page.open(ADDRESS + query)
    page.wait_for_text("ready")


def start(page, query=""):
    open_page(page, query)
    page.give_slots()
    page.wait_for("host.frames.length > 0")


@pytest.fixture
def waiting(page):
    open_page(page)
    return page


@pytest.fixture
def running(page):
    start(page)
    return page


def text(page, name):
    return page.get("document.getElementById(args[0]).textContent", name)


def mood(page, name):
    return page.get("document.getElementById(args[0]).className", name)


def wait_for_shown(page, name, expected):
    page.wait_for("document.getElementById(args[0]).textContent === args[1]", name, expected)


def events(page):
    """Texts of the events, the newest first, and whether each is a bad one."""
    return [tuple(one) for one in page.get(
        "[...document.querySelectorAll('#event-list li')].map((item) => [item.lastChild.data, item.className])")]


def wait_for_event(page, expected, kind=""):
    page.wait_for("[...document.querySelectorAll('#event-list li')].some("
                  "(item) => item.lastChild.data === args[0] && item.className === args[1])", expected, kind)


def button(page, selector):
    return page.driver.find_element(By.CSS_SELECTOR, selector)


def newest_frame(page):
    """The fields of the newest frame text."""
    return page.get("host.frames.at(-1)").split(":")


# --- Without a receiver ---


def test_says_how_to_be_opened_when_no_receiver_hosts_it(bare_page):
    bare_page.open(ADDRESS + "?size=1080p")
    bare_page.wait_for("document.querySelector('button').disabled")
    assert bare_page.get("document.querySelectorAll('button:enabled').length") == 0
    assert text(bare_page, "notice-title") == "Open this page in the Vistel receiver"
    assert text(bare_page, "command") == f"vistel-receiver.exe --url={bare_page.server}/{ADDRESS}?size=1080p"
    assert text(bare_page, "state") == "Not connected"


# --- Starting ---


def test_waits_for_the_slots(waiting):
    assert waiting.get("host.posted") == ["ready"]
    assert (text(waiting, "state"), mood(waiting, "state")) == ("Waiting for slots", "pill wait")
    assert text(waiting, "notice-text") == "Waiting for the receiver's frame slots."
    waiting.do("host.postBuffer(0);")
    waiting.wait_for("document.querySelector('#slot-0 b').textContent === '8.3 MB'")
    assert waiting.get("document.querySelector('#slot-1 b').textContent") == "waiting"
    assert waiting.get("document.querySelectorAll('.slot.filled').length") == 1
    assert waiting.get("host.posted") == ["ready"]


def test_shows_that_frames_flow(running):
    wait_for_event(running, "WebRTC connected")
    assert ("Both frame slots arrived", "") in events(running)
    assert running.get("host.texts") == ["ready", "quality:720p"]
    assert (text(running, "state"), mood(running, "state")) == ("WebRTC connected", "pill good")
    running.wait_for("document.getElementById('notice').hidden")
    running.wait_for("Number(document.getElementById('posted').textContent) > 10")
    running.wait_for("Number(document.getElementById('rate').textContent) > 0")
    wait_for_shown(running, "last-frame", "I420 1280x720")
    running.wait_for("document.querySelectorAll('.slot.filled').length === 2")
    running.wait_for("['newest,8.3 MB', '8.3 MB,newest'].includes("
                     "[...document.querySelectorAll('.slot b')].map((one) => one.textContent).join())")
    assert text(running, "dropped") == "0"
    running.wait_for("document.getElementById('video').videoWidth === 1280")
    assert re.fullmatch(r"frame:[01]:I420:1280:720:0:0:0:1280:720:0,1280;921600,640;1152000,640",
                        running.get("host.frames[0]"))
    slots = running.get("host.frames.map((text) => text[6])")
    assert slots[:2] == ["0", "1"] and all(a != b for a, b in zip(slots, slots[1:]))


# --- What it hears ---


def test_shows_the_diagnostics(waiting):
    waiting.post_json({"type": "diagnostics", "diagnostics": DIAGNOSTICS})
    shown = {name: (text(waiting, name), mood(waiting, name))
             for name in ["app-version", "windows", "supported", "webview2", "camera"]}
    assert shown == {"app-version": ("0.1.3", ""), "windows": ("10.0.22631 x64", ""), "supported": ("yes", "good"),
                     "webview2": ("ready", "good"), "camera": ("registered", "good")}
    assert events(waiting)[0] == ("Diagnostics arrived", "")

    waiting.post_json({"type": "diagnostics", "diagnostics": {
        **DIAGNOSTICS, "windowsVersion": "10.0.19045", "osSupported": False, "webView2Ready": False,
        "virtualCameraRegistered": False}})
    shown = {name: (text(waiting, name), mood(waiting, name))
             for name in ["windows", "supported", "webview2", "camera"]}
    assert shown == {"windows": ("10.0.19045 x64", ""), "supported": ("no", "bad"), "webview2": ("not ready", "bad"),
                     "camera": ("not registered", "bad")}


def test_shows_whether_the_camera_is_used(waiting):
    assert (text(waiting, "usage"), mood(waiting, "usage")) == ("Camera idle", "pill")
    waiting.post_json({"type": "virtual-camera-usage", "active": True})
    assert (text(waiting, "usage"), mood(waiting, "usage")) == ("Camera in use", "pill good")
    assert events(waiting)[0] == ("A camera application started", "")
    waiting.post_json({"type": "virtual-camera-usage", "active": False})
    assert (text(waiting, "usage"), mood(waiting, "usage")) == ("Camera idle", "pill")
    assert events(waiting)[0] == ("The camera applications stopped", "")


@pytest.mark.parametrize("success, path, error, shown", [
    (True, JPEG, 0, JPEG),
    (False, "", 0xC00D36D6, "0xC00D36D6 MF_E_NOT_AVAILABLE"),
    (False, JPEG, 0x80004005, f"0x80004005 E_FAIL, {JPEG}"),
])
def test_shows_what_became_of_a_snapshot(waiting, success, path, error, shown):
    kind = "" if success else "bad"
    button(waiting, "#snapshot").click()
    assert waiting.get("host.texts") == ["ready", "media:snapshot"]
    assert not button(waiting, "#snapshot").is_enabled()
    waiting.post_media_result("snapshot", success, path, error)
    assert (text(waiting, "snapshot-result"), mood(waiting, "snapshot-result")) == (shown, kind)
    assert events(waiting)[0] == (f"snapshot: {shown}", kind)
    waiting.wait_for("!document.getElementById('snapshot').disabled")
    assert text(waiting, "state") == "Waiting for slots"


def test_shows_a_recording_from_start_to_end(running):
    button(running, "#record").click()
    assert running.get("host.texts.at(-1)") == "media:record:start"
    assert not button(running, "#record").is_enabled()
    assert text(running, "record") == "Record"
    running.post_media_result("recording-started", True, MP4, 0)
    assert (text(running, "record"), mood(running, "record")) == ("Stop", "running")
    assert mood(running, "recording-label") == "running"
    running.wait_for("/^(?!00:00)\\d\\d:\\d\\d, [1-9]\\d* frames, /"
                     ".test(document.getElementById('recording-result').textContent)")
    assert text(running, "recording-result").endswith(f" frames, {MP4}")

    button(running, "#record").click()
    assert running.get("host.texts.at(-1)") == "media:record:stop"
    running.post_media_result("recording-stopped", True, MP4, 0)
    assert (text(running, "record"), mood(running, "record")) == ("Record", "")
    assert mood(running, "recording-label") == ""
    shown = text(running, "recording-result")
    recorded = running.get("host.posted.slice(host.posted.indexOf('media:record:start'), "
                           "host.posted.indexOf('media:record:stop')).length") - 1
    assert re.fullmatch(rf"00:\d\d, {recorded} frames, " + re.escape(MP4), shown)
    assert events(running)[0] == (f"recording-stopped: {MP4}", "")
    # The progress has ended.
    running.wait_for("host.frames.length > args[0]", running.get("host.frames.length") + 20)
    assert text(running, "recording-result") == shown


def test_shows_a_recording_that_does_not_start(waiting):
    button(waiting, "#record").click()
    waiting.post_media_result("recording-started", False, "", 0xC00D5212)
    shown = "0xC00D5212 MF_E_TOPO_CODEC_NOT_FOUND"
    assert (text(waiting, "recording-result"), mood(waiting, "recording-result")) == (shown, "bad")
    assert events(waiting)[0] == (f"recording-started: {shown}", "bad")
    waiting.wait_for("!document.getElementById('record').disabled")
    assert text(waiting, "record") == "Record"


def test_offers_to_stop_a_recording_from_before_it_was_loaded(waiting):
    button(waiting, "#record").click()
    waiting.post_media_result("recording-started", False, "", 0x800700B7)
    assert text(waiting, "recording-result") == "0x800700B7 ERROR_ALREADY_EXISTS"
    wait_for_shown(waiting, "record", "Stop")
    waiting.wait_for("!document.getElementById('record').disabled")
    button(waiting, "#record").click()
    assert waiting.get("host.texts.at(-1)") == "media:record:stop"
    waiting.post_media_result("recording-stopped", True, MP4, 0)
    assert (text(waiting, "recording-result"), mood(waiting, "recording-result")) == (MP4, "")


def test_shows_a_recording_that_fails_by_itself(running):
    button(running, "#record").click()
    running.post_media_result("recording-started", True, MP4, 0)
    running.post_media_result("recording-failed", False, MP4, 0x80070070)
    assert re.fullmatch(r"00:\d\d, \d+ frames, 0x80070070 ERROR_DISK_FULL, " + re.escape(MP4),
                        text(running, "recording-result"))
    assert mood(running, "recording-result") == "bad"
    assert text(running, "record") == "Record"


def test_shows_that_a_change_of_quality_ends_a_recording(running):
    button(running, "#record").click()
    running.post_media_result("recording-started", True, MP4, 0)
    button(running, "#quality [data-value='1080p']").click()
    assert running.get("host.texts.at(-1)") == "quality:1080p"
    running.post_media_result("recording-stopped", True, MP4, 0)
    assert text(running, "recording-result").endswith(MP4)
    assert text(running, "record") == "Record"
    running.post_media_result("recording-stopped", True, "", 1)
    assert text(running, "recording-result") == "nothing was being recorded"


# --- What its buttons ask ---


def test_has_a_button_for_everything(running):
    assert running.get("[...document.querySelectorAll('button')].map((one) => one.textContent)") == [
        "720p", "1080p", "Setup", "Landscape", "Portrait", "Mirror", "Snapshot", "Record", "Reconnect", "Log a line"]


@pytest.mark.parametrize("value", ["landscape", "portrait", "setup"])
def test_asks_for_an_orientation(waiting, value):
    assert waiting.get("document.querySelector('#orientation [aria-pressed=true]').dataset.value") == "setup"
    button(waiting, f"#orientation [data-value={value}]").click()
    assert waiting.get("host.posted") == ["ready", f"window:orientation:{value}"]
    assert waiting.get("[...document.querySelectorAll('#orientation [aria-pressed=true]')]"
                       ".map((one) => one.dataset.value)") == [value]


def test_asks_for_a_quality_and_sends_that_size(running):
    for value, width, height in [("1080p", "1920", "1080"), ("720p", "1280", "720")]:
        button(running, f"#quality [data-value='{value}']").click()
        assert running.get("host.texts.at(-1)") == f"quality:{value}"
        assert events(running)[0] == (f"Asked for {value}", "")
        assert running.get("[...document.querySelectorAll('#quality [aria-pressed=true]')]"
                           ".map((one) => one.dataset.value)") == [value]
        running.wait_for("host.frames.at(-1).includes(args[0])", f":{width}:{height}:0:0:0:")
        wait_for_shown(running, "last-frame", f"I420 {width}x{height}")


def test_mirrors_what_is_sent_and_shown(running):
    assert newest_frame(running)[7] == "0"
    button(running, "#mirror").click()
    running.wait_for("host.frames.at(-1).split(':')[7] === '1'")
    assert mood(running, "picture") == "mirrored"
    wait_for_shown(running, "last-frame", "I420 1280x720 mirrored")
    button(running, "#mirror").click()
    running.wait_for("host.frames.at(-1).split(':')[7] === '0'")
    assert mood(running, "picture") == ""
    wait_for_shown(running, "last-frame", "I420 1280x720")


def test_asks_for_new_slots_and_goes_on_with_them(running):
    running.do("window.oldBuffers = host.buffers.slice();")
    button(running, "#reconnect").click()
    assert running.get("host.texts") == ["ready", "quality:720p", "ready"]
    assert not button(running, "#reconnect").is_enabled()
    running.wait_for("Number(document.getElementById('dropped').textContent) > 0")
    posted = running.get("host.frames.length")
    running.give_slots()
    running.wait_for("host.frames.length > args[0]", posted + 2)
    assert running.run("""
        const luma = host.buffers.map((buffer) => new Uint8Array(buffer, 0, 1280 * 720));
        return luma.map((bytes) => bytes.some((value) => value > 200));""") == [True, True]
    running.wait_for("!document.getElementById('reconnect').disabled")
    assert [one for one, _ in events(running)].count("Both frame slots arrived") == 2


def test_asks_for_a_line_in_the_log(waiting):
    button(waiting, "#log").click()
    assert waiting.get("host.posted") == ["ready", "error:A line that the sample page was asked for"]
    assert events(waiting)[0] == ("Asked for a line in the receiver's log", "")


# --- Its query ---


def test_sends_the_size_pattern_and_colours_of_the_query(page):
    start(page, "?size=1080p&pattern=bars&fps=10&colors=exact")
    assert page.get("host.texts") == ["ready", "quality:1080p"]
    fields = newest_frame(page)
    assert fields[2] in ["RGBX", "I420"]
    assert fields[3:10] == ["1920", "1080", "0", "0", "0", "1920", "1080"]
    # The first bar is white, the last one nearly black.
    first, last = page.run("""
        const [, slot, format, , , , , , , , planes] = host.frames.at(-1).split(":");
        const [offset, stride] = planes.split(";")[0].split(",").map(Number);
        const bytes = new Uint8Array(host.buffers[slot], offset);
        const step = format === "RGBX" ? 4 : 1;
        return [120, 1800].map((column) => bytes[200 * stride + column * step]);""")
    assert first > 200 and last < 50


@pytest.mark.parametrize("query, complaint", [
    ("size=480p", "size=480p is none of 720p, 1080p"),
    ("pattern=noise", "pattern=noise is none of card, bars"),
    ("colors=true", "colors=true is none of fast, exact"),
    ("snapshot=soon", "snapshot=soon is not a number of seconds"),
    ("snapshot=1:2", "snapshot=1:2 is not a number of seconds"),
    ("snapshot=", "snapshot= is not a number of seconds"),
    ("record=1", "record=1 is not AFTER:SECONDS"),
    ("record=1:-2", "record=1:-2 is not AFTER:SECONDS"),
    ("record=:", "record=: is not AFTER:SECONDS"),
])
def test_says_what_it_cannot_read_and_goes_on(page, query, complaint):
    start(page, f"?{query}")
    assert (complaint, "bad") in events(page)
    assert page.get("host.texts") == ["ready", "quality:720p"]
    assert page.get("host.frames[0]").startswith("frame:0:I420:1280:720:")


@pytest.mark.parametrize("fps", ["0", "61", "1.5", "x"])
def test_refuses_a_rate_out_of_range(page, fps):
    open_page(page, f"?fps={fps}")
    assert any(one.startswith(f"fps={fps} is none of 1, 2, ") and kind == "bad" for one, kind in events(page))


def test_takes_a_snapshot_by_itself(page):
    open_page(page, "?snapshot=0.5")
    page.give_slots()
    page.wait_for_text("media:snapshot")
    first_ms, snapshot_ms = page.get("""[(text) => text.startsWith("frame:"), (text) => text === "media:snapshot"]
        .map((wanted) => host.postedMs[host.posted.findIndex(wanted)])""")
    assert snapshot_ms - first_ms >= 495 # Timers may be a little early.
    page.post_media_result("snapshot", False, "", 0xC00D36D6)
    assert text(page, "snapshot-result") == "0xC00D36D6 MF_E_NOT_AVAILABLE"
    page.wait_for("host.frames.length > args[0]", page.get("host.frames.length") + 3)
    assert text(page, "state") == "WebRTC connected"


def test_records_by_itself(page):
    open_page(page, "?record=0.2:1.5")
    page.do("""
        host.onText = (text) => {
            if (text === "media:record:start") {
                host.postMediaResult("recording-started", true, args[0], 0);
            } else if (text === "media:record:stop") {
                host.postMediaResult("recording-stopped", true, args[0], 0);
            }
        };""", MP4)
    page.give_slots()
    wait_for_event(page, f"recording-stopped: {MP4}")
    start_ms, stop_ms = page.get("""["media:record:start", "media:record:stop"]
        .map((text) => host.postedMs[host.posted.indexOf(text)])""")
    assert stop_ms - start_ms >= 1495
    assert page.get("host.texts") == ["ready", "quality:720p", "media:record:start", "media:record:stop"]
    assert re.fullmatch(r"00:\d\d, [1-9]\d* frames, " + re.escape(MP4), text(page, "recording-result"))


def test_does_not_stop_a_recording_that_has_not_started_by_itself(page):
    open_page(page, "?record=0:0&snapshot=1")
    page.do("""
        host.onText = (text) => {
            if (text === "media:record:start") {
                host.postMediaResult("recording-started", false, "", 0x80004001);
            }
        };""")
    page.give_slots()
    page.wait_for_text("media:snapshot")
    assert page.get("host.texts") == ["ready", "quality:720p", "media:record:start", "media:snapshot"]
    assert text(page, "recording-result") == "0x80004001 E_NOTIMPL"


# --- Failures ---


def assert_failed(page, message):
    wait_for_shown(page, "notice-title", "The page has failed")
    assert text(page, "notice-text") == message
    assert mood(page, "notice") == "bad"
    assert (text(page, "state"), mood(page, "state")) == ("Error", "pill bad")
    assert (message, "bad") in events(page)
    assert page.get("host.texts").count(f"error:{message}") == 1


def test_shows_and_reports_a_missing_track_processor(page):
    page.inject("delete window.MediaStreamTrackProcessor;")
    open_page(page)
    page.give_slots()
    assert_failed(page, "MediaStreamTrackProcessor is unavailable")


def test_shows_and_reports_a_frame_that_cannot_be_copied(page):
    open_page(page)
    page.give_slots(1000)
    assert_failed(page, "The receiver has no room for a I420 frame of 1280 x 720")
    assert page.get("host.frames") == []


def test_shows_and_reports_a_connection_that_fails(page):
    page.inject("RTCPeerConnection.prototype.createOffer = async () => { throw new Error('no offer'); };")
    open_page(page)
    page.give_slots()
    assert_failed(page, "no offer")


# --- Room ---


@pytest.mark.parametrize("width, height", [
    (744, 481), (760, 520), (960, 540), (450, 800), (1600, 900)])
def test_has_everything_in_sight(page, width, height):
    start(page)
    page.resize(width, height)
    page.post_json({"type": "diagnostics", "diagnostics": DIAGNOSTICS})
    page.post_media_result("snapshot", True, JPEG, 0)
    page.post_media_result("recording-started", True, MP4, 0)
    page.wait_for("document.getElementById('notice').hidden")
    hidden = page.run("""
        const page = document.documentElement;
        const parts = [...document.querySelectorAll("header, section, button, .pill, .tile, dd, #captures b")];
        const cut = parts.filter((part) => {
            const { left, top, right, bottom } = part.getBoundingClientRect();
            const outside = left < 0 || top < 0 || right > page.clientWidth || bottom > page.clientHeight;
            return outside || part.scrollWidth > part.clientWidth + 1 && part.clientWidth > 0;
        });
        // No two of the boxes may share a place.
        const boxes = [...document.querySelectorAll("#picture, #controls, #figures, #host, #captures, #events")];
        const overlapping = boxes.flatMap((a, index) => boxes.slice(index + 1).filter((b) => {
            const [one, other] = [a.getBoundingClientRect(), b.getBoundingClientRect()];
            return one.left < other.right && other.left < one.right && one.top < other.bottom && other.top < one.bottom;
        }).map((b) => `${a.id} and ${b.id}`));
        return [cut.map((part) => part.id || part.textContent), overlapping];""")
    assert hidden == [[], []]
