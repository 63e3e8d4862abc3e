// Watches what a page asks of the browser: drawing, capture, peer connections, decoded frames. Runs before the page.
(() => {
    'use strict';
    const probe = {
        gradients: [], // { line, stops }
        fills: [], // fillRect: { style, rectangle }, style being the gradient's number or a color
        texts: [], // fillText: { text, x, y, font, style }
        captures: [], // captureStream: { width, height, rate, stream }
        sentTrack: null, // What addTrack was given, and its contentHint at that time.
        sentHint: null,
        connections: [], // RTCPeerConnection objects in the order of their making
        constructorArguments: [],
        calls: [], // "sender.createOffer begins", "sender.createOffer ends" and so on, in order
        parameters: [], // What setParameters was given.
        candidates: [], // What addIceCandidate was given: { to, candidate }
        frames: [], // Every VideoFrame that was read.
        nextDraw: null, // The drawing that waits for the display, once drawing is by hand.

        drawByHand() {
            window.requestAnimationFrame = (callback) => {
                probe.nextDraw = callback;
            };
        },
        draw(count) {
            for (let i = 0; i < count; ++i) {
                probe.nextDraw(0);
            }
        },
        get openFrames() {
            return probe.frames.filter((frame) => frame.codedWidth !== 0).length;
        },
    };
    window.probe = probe;

    const wrap = (prototype, name, around) => {
        const original = prototype[name];
        prototype[name] = function (...args) {
            return around.call(this, () => original.apply(this, args), args);
        };
    };

    const drawing = CanvasRenderingContext2D.prototype;
    const gradientNumbers = new Map();
    const styleOf = (context) => gradientNumbers.get(context.fillStyle) ?? context.fillStyle;
    wrap(drawing, 'createLinearGradient', function (call, args) {
        const gradient = call();
        gradientNumbers.set(gradient, probe.gradients.length);
        probe.gradients.push({ line: args, stops: [] });
        return gradient;
    });
    wrap(CanvasGradient.prototype, 'addColorStop', function (call, args) {
        probe.gradients[gradientNumbers.get(this)].stops.push(args);
        return call();
    });
    wrap(drawing, 'fillRect', function (call, args) {
        probe.fills.push({ style: styleOf(this), rectangle: args });
        return call();
    });
    wrap(drawing, 'fillText', function (call, [text, x, y]) {
        probe.texts.push({ text, x, y, font: this.font, style: styleOf(this) });
        return call();
    });
    wrap(HTMLCanvasElement.prototype, 'captureStream', function (call, [rate]) {
        const stream = call();
        probe.captures.push({ width: this.width, height: this.height, rate, stream });
        return stream;
    });

    const Connection = window.RTCPeerConnection;
    window.RTCPeerConnection = class extends Connection {
        constructor(...args) {
            super(...args);
            probe.connections.push(this);
            probe.constructorArguments.push(args);
        }
    };
    // In the loopback the sender is made first.
    const nameOf = (connection) => (connection === probe.connections[0] ? 'sender' : 'receiver');
    const watch = (prototype, name, who, note = () => {}) => wrap(prototype, name, function (call, args) {
        note.call(this, args);
        probe.calls.push(`${who(this)}.${name} begins`);
        const result = call();
        Promise.resolve(result).then(() => probe.calls.push(`${who(this)}.${name} ends`), () => {});
        return result;
    });
    for (const name of ['createOffer', 'createAnswer']) {
        watch(Connection.prototype, name, nameOf);
    }
    for (const name of ['setLocalDescription', 'setRemoteDescription']) {
        watch(Connection.prototype, name, nameOf, function ([description]) {
            probe.calls.push(`description: ${description.type}`);
        });
    }
    wrap(Connection.prototype, 'addTrack', function (call, [track]) {
        probe.calls.push(`${nameOf(this)}.addTrack`);
        probe.sentTrack = track;
        probe.sentHint = track.contentHint;
        return call();
    });
    wrap(Connection.prototype, 'addIceCandidate', function (call, [candidate]) {
        probe.candidates.push({ to: nameOf(this), candidate: candidate?.candidate });
        return call();
    });
    watch(RTCRtpSender.prototype, 'setParameters', () => 'rtpSender', ([parameters]) => {
        probe.parameters.push(JSON.parse(JSON.stringify(parameters)));
    });

    wrap(ReadableStreamDefaultReader.prototype, 'read', async function (call) {
        const result = await call();
        if (result.value instanceof VideoFrame) {
            probe.frames.push(result.value);
        }
        return result;
    });
})();
