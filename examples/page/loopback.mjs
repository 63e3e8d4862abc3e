// Sends a video track through a real WebRTC connection inside this page and returns the received track.

/** More than the picture needs, so that the encoder does not reduce its quality. */
const MaxBitrate = 16000000;

/**
 * @param {MediaStreamTrack} source
 * @param {(state: RTCPeerConnectionState) => void} onState  Receives the state of the receiving side.
 * @returns {Promise<MediaStreamTrack>}  The received track, after both sides have exchanged their descriptions.
 */
export async function openLoopback(source, onState) {
    const sender = new RTCPeerConnection();
    const receiver = new RTCPeerConnection();
    forwardCandidates(sender, receiver);
    forwardCandidates(receiver, sender);
    receiver.addEventListener("connectionstatechange", () => onState(receiver.connectionState));
    /** @type {Promise<MediaStreamTrack>} */
    const received = new Promise((resolve) => {
        receiver.addEventListener("track", (event) => resolve(event.track), { once: true });
    });

    const rtpSender = sender.addTrack(source);
    const parameters = rtpSender.getParameters();
    parameters.encodings = [{ ...parameters.encodings[0], maxBitrate: MaxBitrate, scaleResolutionDownBy: 1 }];
    await rtpSender.setParameters(parameters);

    await sender.setLocalDescription(await sender.createOffer());
    await receiver.setRemoteDescription(descriptionOf(sender));
    await receiver.setLocalDescription(await receiver.createAnswer());
    await sender.setRemoteDescription(descriptionOf(receiver));
    return received;
}

/**
 * What setLocalDescription() has set.
 * @param {RTCPeerConnection} connection
 */
function descriptionOf({ localDescription }) {
    return /** @type {RTCSessionDescription} */ (localDescription);
}

/**
 * @param {RTCPeerConnection} from
 * @param {RTCPeerConnection} to
 */
function forwardCandidates(from, to) {
    from.addEventListener("icecandidate", ({ candidate }) => {
        if (candidate) {
            to.addIceCandidate(candidate);
        }
    });
}
