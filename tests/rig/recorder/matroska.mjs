// Raw video in a Matroska stream, as far as an encoder needs it to take frames with exact times.

const TimestampScaleNs = 100; // the unit of Media Foundation's times

// Identifiers of the format's elements.
const Ebml = 0x1a45dfa3;
const DocTypeVersion = 0x4287;
const DocTypeReadVersion = 0x4285;
const DocType = 0x4282;
const Segment = 0x18538067;
const Info = 0x1549a966;
const TimestampScale = 0x2ad7b1;
const Tracks = 0x1654ae6b;
const TrackEntry = 0xae;
const TrackNumber = 0xd7;
const TrackUid = 0x73c5;
const TrackType = 0x83;
const FlagLacing = 0x9c;
const CodecId = 0x86;
const Video = 0xe0;
const FlagInterlaced = 0x9a;
const PixelWidth = 0xb0;
const PixelHeight = 0xba;
const UncompressedFourcc = 0x2eb524;
const Cluster = 0x1f43b675;
const ClusterTimestamp = 0xe7;
const BlockGroup = 0xa0;
const BlockDuration = 0x9b;
const Block = 0xa1;

const OnlyTrack = 1;
const VideoTrack = 1;
const Progressive = 2;
const UnknownSize = Buffer.from('01ffffffffffffff', 'hex');

function identifier(id) {
    const bytes = Buffer.alloc(4);
    bytes.writeUInt32BE(id);
    return bytes.subarray(bytes.findIndex((byte) => byte !== 0));
}

// Sizes may take one to eight bytes; here it is always eight.
function sizeField(size) {
    const bytes = Buffer.alloc(8);
    bytes.writeBigUInt64BE(1n << 56n | BigInt(size));
    return bytes;
}

function element(id, ...contents) {
    const content = Buffer.concat(contents);
    return Buffer.concat([identifier(id), sizeField(content.length), content]);
}

function number(id, value) {
    const bytes = Buffer.alloc(8);
    bytes.writeBigUInt64BE(BigInt(value));
    return element(id, bytes);
}

function text(id, value) {
    return element(id, Buffer.from(value));
}

// What stands in front of the first frame of an NV12 stream.
export function streamStart({ width, height }) {
    return Buffer.concat([
        element(Ebml, text(DocType, 'matroska'), number(DocTypeVersion, 4), number(DocTypeReadVersion, 2)),
        identifier(Segment), UnknownSize,
        element(Info, number(TimestampScale, TimestampScaleNs)),
        element(Tracks, element(TrackEntry,
            number(TrackNumber, OnlyTrack), number(TrackUid, OnlyTrack), number(TrackType, VideoTrack),
            number(FlagLacing, 0), text(CodecId, 'V_UNCOMPRESSED'),
            element(Video, number(FlagInterlaced, Progressive), number(PixelWidth, width), number(PixelHeight, height),
                text(UncompressedFourcc, 'NV12')))),
    ]);
}

// What stands in front of the bytes of one frame. Times in 100 ns units; a null duration is left out.
export function frameStart({ time, duration, bytes }) {
    const blockHeader = Buffer.from([0x80 | OnlyTrack, 0, 0, 0]); // no time after the cluster's own, no flags
    const blockStart = Buffer.concat([
        ...(duration === null ? [] : [number(BlockDuration, duration)]),
        identifier(Block), sizeField(blockHeader.length + bytes), blockHeader,
    ]);
    const groupBytes = blockStart.length + bytes;
    const clusterStart = Buffer.concat([
        number(ClusterTimestamp, time), identifier(BlockGroup), sizeField(groupBytes), blockStart,
    ]);
    return Buffer.concat([identifier(Cluster), sizeField(clusterStart.length + bytes), clusterStart]);
}
