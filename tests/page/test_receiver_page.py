"""The built-in page: what it shows, draws, sends through its loopback, and posts."""

import pathlib

import pytest

PAGE = "page/receiver_page.html"
PROBE = (pathlib.Path(__file__).parent / "page_probe.js").read_text(encoding="utf-8")

AMBER = "rgb(240, 180, 41)"
GREEN = "rgb(64, 209, 125)"


@pytest.fixture
def probed(page):
    page.inject(PROBE)
    return page


def open_as_product(page):
    page.open_string(PAGE)
    page.wait_for_text("ready")


def start(page):
    open_as_product(page)
    page.give_slots()


def style(page, selector, *properties):
    return page.get(
        "args[1].map((name) => getComputedStyle(document.querySelector(args[0])).getPropertyValue(name))",
        selector, properties)


def card(page):
    return page.get("['title', 'detail'].map((id) => document.getElementById(id).textContent)")


def dot(page):
    return style(page, ".dot", "background-color")[0]


# Puts frames of the given formats, 64 x 32 each, in the place of the decoded ones.
def replace_frames(page, formats):
    page.inject("""
        window.MediaStreamTrackProcessor = class {
            constructor() {
                this.readable = new ReadableStream({
                    start(controller) {
                        for (const format of FORMATS) {
                            controller.enqueue(new VideoFrame(new Uint8Array(64 * 32 * 4), {
                                format, codedWidth: 64, codedHeight: 32, timestamp: 0,
                            }));
                        }
                    },
                });
            }
        };""".replace("FORMATS", repr(formats)))


@pytest.fixture(params=["string", "file", "http"])
def opened(request, page):
    {"string": page.open_string, "file": page.open_file, "http": page.open}[request.param](PAGE)
    page.wait_for_text("ready")
    return page


# --- What it shows ---


def test_shows_the_texts_in_their_places(opened):
    assert opened.get("document.compatMode") == "CSS1Compat"
    assert opened.get("document.documentElement.lang") == "en"
    assert opened.get("document.characterSet") == "UTF-8"
    assert opened.get("document.querySelector('meta[name=viewport]').content") == "width=device-width,initial-scale=1"
    outline = opened.run("""
        const describe = (node) => [node.localName, node.id, node.className,
            node.children.length ? [...node.children].map(describe) : node.textContent];
        return describe(document.querySelector('main'));""")
    assert outline == ["main", "", "", [
        ["h1", "", "", "Vistel"],
        ["p", "", "", "Windows receiver prototype"],
        ["div", "status", "card", [
            ["div", "", "", [
                ["span", "", "dot", ""],
                ["strong", "title", "", "Starting receiver\u2026"]]],
            ["p", "detail", "", "Preparing the browser video pipeline."]]]]]


def test_needs_nothing_from_elsewhere(opened):
    assert opened.get("performance.getEntriesByType('resource').map((entry) => entry.name)") == []
    assert opened.get("document.querySelectorAll('style').length") == 1
    assert opened.get("document.querySelectorAll('script').length") == 1


def test_says_ready_once_and_waits(opened):
    assert opened.get("host.posted") == ["ready"]
    assert card(opened) == ["Starting receiver\u2026", "Preparing the browser video pipeline."]


@pytest.mark.parametrize("selector, expected", [
    (":root", {"color-scheme": "dark", "font-family": "system-ui, sans-serif"}),
    ("body", {"margin": "0px", "background-color": "rgb(17, 19, 26)", "color": "rgb(246, 247, 251)",
              "display": "grid", "place-items": "center", "font-family": "system-ui, sans-serif"}),
    ("h1", {"font-size": "30px", "margin": "0px 0px 8px"}),
    ("p", {"color": "rgb(174, 181, 197)"}),
    (".card", {"margin-top": "28px", "padding": "22px", "border": "1px solid rgb(48, 55, 71)",
               "border-radius": "18px", "background-color": "rgb(26, 30, 40)"}),
    (".dot", {"display": "inline-block", "width": "10px", "height": "10px", "border-radius": "50%",
              "background-color": AMBER, "margin-right": "9px", "box-shadow": "none"}),
])
def test_has_its_colours_and_measures(page, selector, expected):
    open_as_product(page)
    assert dict(zip(expected, style(page, selector, *expected))) == expected


def test_fills_the_window_and_keeps_its_width(page):
    open_as_product(page)
    assert page.get("document.body.getBoundingClientRect().height === innerHeight")
    size, line = style(page, "p", "font-size", "line-height")
    assert float(line[:-2]) == 1.5 * float(size[:-2])
    widths = []
    for width in [300, 667, 668, 900]:
        page.resize(width, 600)
        widths.append(page.get("document.querySelector('main').getBoundingClientRect().width"))
    assert widths == [252, 619, 620, 620]


def test_runs_without_a_secure_context(probed):
    open_as_product(probed)
    assert probed.get("location.href") == "about:blank"
    assert probed.get("isSecureContext") is False
    names = ["RTCPeerConnection", "RTCRtpSender", "MediaStreamTrackProcessor", "VideoFrame", "ReadableStream",
             "CanvasRenderingContext2D", "requestAnimationFrame"]
    assert probed.get("args[0].filter((name) => !(name in window))", names) == []
    assert probed.get("'captureStream' in HTMLCanvasElement.prototype && 'copyTo' in VideoFrame.prototype && "
                      "'contentHint' in MediaStreamTrack.prototype")


# --- The test pattern ---


def test_draws_the_bar_in_steps_and_begins_again(probed):
    open_as_product(probed)
    probed.do("probe.drawByHand();")
    probed.give_slots()
    probed.do("probe.draw(1500);")
    bars = probed.get("probe.fills.filter(({ style }) => style === '#f7cc55').map(({ rectangle }) => rectangle)")
    assert [bar[1:] for bar in bars] == [[0, 220, 720]] * 1501
    positions = [bar[0] for bar in bars]
    assert positions[0] == -220
    assert positions[107] == 1278
    assert positions[108] == -208
    assert all((later - earlier) % 1500 == 14 for earlier, later in zip(positions, positions[1:]))
    assert -220 <= min(positions) and max(positions) < 1280
    assert positions[:750] == positions[750:1500]
    assert not any(positions[shift:shift + 750] == positions[:750] for shift in range(1, 750))


def test_draws_background_bar_and_texts_in_order(probed):
    open_as_product(probed)
    probed.do("probe.drawByHand();")
    probed.give_slots()
    probed.do("probe.draw(1);")
    used = probed.get("probe.fills.map(({ style }) => style)")
    gradient = used[0]
    assert used == [gradient, "#f7cc55"] * 2
    assert probed.get("probe.gradients[args[0]]", gradient) == {
        "line": [0, 0, 1280, 720], "stops": [[0, "#112b4e"], [1, "#4fbb91"]]}
    assert probed.get("probe.fills[0].rectangle") == [0, 0, 1280, 720]
    heading = {"text": "VISTEL WEBRTC", "x": 60, "y": 130, "font": "bold 82px system-ui", "style": "#ffffff"}
    number = {"x": 64, "y": 190, "font": "36px system-ui", "style": "#ffffff"}
    assert probed.get("probe.texts") == [heading, {"text": "frame 0", **number}, heading, {"text": "frame 1", **number}]


def test_goes_on_drawing_with_the_display(probed):
    start(probed)
    probed.wait_for("probe.texts.some(({ text }) => text === 'frame 30')")


# --- The loopback ---


def test_captures_the_picture_for_sharpness(probed):
    start(probed)
    probed.wait_for("host.frames.length > 0")
    assert probed.get("probe.captures.map(({ width, height, rate }) => [width, height, rate])") == [[1280, 720, 30]]
    assert probed.get("probe.captures[0].stream.getVideoTracks()[0] === probe.sentTrack")
    assert probed.get("probe.sentTrack.contentHint") == "detail"


def test_negotiates_in_order_with_one_encoding(probed):
    start(probed)
    probed.wait_for("host.frames.length > 0")
    assert probed.get("probe.constructorArguments") == [[], []]
    assert probed.get("probe.parameters.map(({ encodings }) => encodings)") == [
        [{"maxBitrate": 8000000, "scaleResolutionDownBy": 1}]]
    in_force = probed.get("probe.connections[0].getSenders().map((sender) => sender.getParameters().encodings)")
    assert [[(one["maxBitrate"], one["scaleResolutionDownBy"]) for one in encodings] for encodings in in_force] == [
        [(8000000, 1)]]
    assert probed.get("probe.calls") == [
        "sender.addTrack",
        "rtpSender.setParameters begins", "rtpSender.setParameters ends",
        "sender.createOffer begins", "sender.createOffer ends",
        "description: offer", "sender.setLocalDescription begins", "sender.setLocalDescription ends",
        "description: offer", "receiver.setRemoteDescription begins", "receiver.setRemoteDescription ends",
        "receiver.createAnswer begins", "receiver.createAnswer ends",
        "description: answer", "receiver.setLocalDescription begins", "receiver.setLocalDescription ends",
        "description: answer", "sender.setRemoteDescription begins", "sender.setRemoteDescription ends",
    ]
    candidates = probed.get("probe.candidates")
    assert {one["to"] for one in candidates} == {"sender", "receiver"}
    assert all(one["candidate"] for one in candidates)


def test_starts_once_however_many_buffers_arrive(probed):
    start(probed)
    probed.give_slots()
    probed.wait_for("host.frames.length > 3")
    probed.give_slots()
    probed.wait_for("host.frames.length > args[0]", probed.get("host.frames.length") + 3)
    assert probed.get("[probe.connections.length, probe.captures.length]") == [2, 1]
    assert probed.get("host.texts") == ["ready"]


@pytest.mark.parametrize("first", [0, 1])
def test_waits_for_the_second_buffer(probed, first):
    open_as_product(probed)
    probed.do("host.postBuffer(args[0]); host.postBuffer(args[0]);", first)
    probed.run("for (let i = 0; i < 3; ++i) { await new Promise((resolve) => requestAnimationFrame(resolve)); }")
    assert probed.get("[probe.connections.length, probe.captures.length, probe.fills.length]") == [0, 0, 0]
    assert card(probed)[0] == "Starting receiver\u2026"
    probed.do("host.postBuffer(args[0]);", 1 - first)
    probed.wait_for("host.frames.length > 0")


# --- Frames ---


def test_turns_green_when_the_track_arrives(page):
    open_as_product(page)
    assert dot(page) == AMBER
    page.give_slots()
    page.wait_for("document.getElementById('title').textContent === 'WebRTC video connected'")
    assert page.get("document.getElementById('status').className") == "card ready"
    assert page.get("document.getElementById('detail').innerHTML") == (
        "Decoded WebRTC frames are entering <code>Vistel Virtual Camera</code>.")
    assert style(page, ".dot", "background-color", "box-shadow") == [
        GREEN, "rgba(64, 209, 125, 0.533) 0px 0px 14px 0px"]
    assert style(page, "code", "color") == ["rgb(120, 169, 255)"]


def test_fills_the_slots_in_turn_and_names_them_in_the_short_form(probed):
    start(probed)
    probed.wait_for("host.frames.length > 5")
    frames = probed.get("host.frames")
    assert frames[0].startswith("frame:0:")
    layout = "I420:1280:720:0:0,1280;921600,640;1152000,640"
    assert frames == [f"frame:{index % 2}:{layout}" for index in range(len(frames))]
    # The picture is really there: blue-green with light and dark in it.
    for slot in [0, 1]:
        lowest, highest = probed.run("""
            const luma = new Uint8Array(host.buffers[args[0]], 0, 1280 * 720);
            return [luma.reduce((a, b) => Math.min(a, b)), luma.reduce((a, b) => Math.max(a, b))];""", slot)
        assert lowest < 80 and highest > 200


def test_names_as_many_planes_as_the_format_has(probed):
    replace_frames(probed, ["NV12", "I420", "I420A", "RGBA", "RGBX", "BGRA", "BGRX"])
    start(probed)
    probed.wait_for("host.frames.length === 7")
    assert probed.get("host.frames") == [
        "frame:0:NV12:64:32:0:0,64;2048,64",
        "frame:1:I420:64:32:0:0,64;2048,32;2560,32",
        "frame:0:I420A:64:32:0:0,64;2048,32;2560,32;3072,64",
        "frame:1:RGBA:64:32:0:0,256",
        "frame:0:RGBX:64:32:0:0,256",
        "frame:1:BGRA:64:32:0:0,256",
        "frame:0:BGRX:64:32:0:0,256",
    ]
    probed.wait_for("probe.frames.length === 7 && probe.openFrames === 0")


def test_closes_every_frame(probed):
    start(probed)
    probed.wait_for("host.frames.length > 20")
    # The newest may be on its way into a slot.
    assert probed.get("probe.frames.length") > 20
    assert probed.get("probe.openFrames") <= 1


def test_ignores_everything_else_the_host_says(page):
    start(page)
    page.wait_for("host.frames.length > 0")
    shown = card(page)
    page.post_json({"type": "diagnostics", "diagnostics": {"windowsVersion": "10.0.22631", "appVersion": "0.1.3"}})
    page.post_json({"type": "virtual-camera-usage", "active": True})
    page.post_media_result("snapshot", False, "", 3222091478)
    page.post_json("text")
    page.wait_for("host.frames.length > args[0]", page.get("host.frames.length") + 3)
    assert card(page) == shown
    assert page.get("host.texts") == ["ready"]


def test_begins_again_after_a_reload(page):
    page.open(PAGE)
    page.give_slots()
    page.wait_for("host.frames.length > 2")
    page.driver.refresh()
    assert page.get("host.posted") == ["ready"]
    assert card(page)[0] == "Starting receiver\u2026"
    page.give_slots()
    page.wait_for("host.frames.length > 0")
    assert page.get("host.frames")[0].startswith("frame:0:")


# --- Failures ---


def wait_for_failure(page, message):
    page.wait_for("document.getElementById('title').textContent === 'Receiver error'")
    page.wait_for_text(f"error:{message}")
    assert card(page) == ["Receiver error", message]
    assert page.get("host.texts") == ["ready", f"error:{message}"]


def test_reports_a_missing_track_processor(probed):
    probed.inject("delete window.MediaStreamTrackProcessor;")
    start(probed)
    wait_for_failure(probed, "MediaStreamTrackProcessor is unavailable")
    assert dot(probed) == GREEN
    assert probed.get("host.frames") == []
    drawn = probed.get("probe.texts.length")
    probed.wait_for("probe.texts.length > args[0]", drawn)


def test_reports_an_unsupported_format_and_stops(probed):
    replace_frames(probed, ["NV12", "I422", "NV12"])
    start(probed)
    wait_for_failure(probed, "Unsupported decoded format: I422")
    assert dot(probed) == GREEN
    assert len(probed.get("host.frames")) == 1
    assert probed.get("[probe.frames.length, probe.openFrames]") == [2, 0]


def test_reports_a_slot_that_is_too_small_and_stops(probed):
    open_as_product(probed)
    probed.give_slots(1000)
    probed.wait_for("document.getElementById('title').textContent === 'Receiver error'")
    message = card(probed)[1]
    wait_for_failure(probed, message)
    assert "copyTo" in message
    assert probed.get("host.frames") == []
    assert probed.get("[probe.frames.length, probe.openFrames]") == [1, 0]
    assert dot(probed) == GREEN


def test_reports_a_failing_negotiation_and_stays_amber(probed):
    probed.inject("""
        RTCPeerConnection.prototype.createAnswer = async () => {
            throw new Error('<b>no answer</b>');
        };""")
    # The track arrives with the offer; without it the failure is all there is.
    probed.inject("""
        Object.defineProperty(RTCPeerConnection.prototype, 'ontrack', { set() {} });""")
    start(probed)
    wait_for_failure(probed, "<b>no answer</b>")
    assert dot(probed) == AMBER
    assert probed.get("document.querySelector('#detail b')") is None
