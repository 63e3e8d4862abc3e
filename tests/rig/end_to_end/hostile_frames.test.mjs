// A page that posts what no page should: nothing of it reaches the camera, and good frames go on as before.
import assert from 'node:assert/strict';
import { readFile } from 'node:fs/promises';
import { test } from 'node:test';

import { assertInOrder, logTexts } from './receiver_texts.mjs';
import { frameMessage, goodMessage, InvalidArgument, InvalidMediaType, Ok, startOnSlotPage } from './slot_page_run.mjs';

const SlotBytes = 8294400;

const good = { format: 'NV12', codedWidth: 1280, codedHeight: 720, planes: [[0, 1280], [921600, 1280]] };
const changed = (changes) => frameMessage({ ...good, ...changes });
const rgba = (changes) => changed({ format: 'RGBA', planes: [[0, 5120]], ...changes });

// Messages that name no slot.
const SlotlessFrames = [
    'frame:', 'frame:0', 'frame:0:', 'frame::', 'frame:2:', `frame:2${goodMessage().slice(7)}`,
    `frame:-1${goodMessage().slice(7)}`, `frame:00${goodMessage().slice(7)}`, `frame: 0${goodMessage().slice(7)}`,
    goodMessage().replace('frame:0:', 'frame:0,'), goodMessage().replace('frame:0:', 'frame:\u0660:'),
];

// Numbers that are none, or none that a field of a message could hold.
const BadNumbers = [
    '', ' ', '0', '-2', '+2', ' 2', '2 ', '2.0', '2e1', '0x2', '1,2', 'two', 'NaN', '\u0662', '\uff12', '4294967298',
    '18446744073709551618', '9'.repeat(1000),
];

// Messages that name a slot and are malformed after it.
const MalformedFrames = [
    ...BadNumbers.flatMap((number) => [
        changed({ codedWidth: number, displayWidth: 2 }), changed({ codedHeight: number, displayHeight: 2 }),
        changed({ displayWidth: number }), changed({ displayHeight: number }),
    ]),
    ...BadNumbers.filter((number) => number !== '0').map((number) => changed({ rotation: number })),
    ...BadNumbers.filter((number) => number !== '0').flatMap((flag) => [
        changed({ flipA: flag }), changed({ flipB: flag }),
    ]),
    ...['true', '10', '01', '00'].flatMap((flag) => [changed({ flipA: flag }), changed({ flipB: flag })]),
    ...[1, 45, 89, 360, 450, -90].map((rotation) => changed({ rotation })),
    ...[1, 3, 1279, 4097, 4098].map((codedWidth) => changed({ codedWidth, displayWidth: 2 })),
    ...[1, 719, 2161, 2162].map((codedHeight) => changed({ codedHeight, displayHeight: 2 })),
    changed({ displayWidth: 4097 }), changed({ displayHeight: 4097 }),
    // Planes.
    ...[
        [], [''], ['', ''], ['0'], ['0,'], [',1280'], [','], ['0,0'], ['0,1280,5'], ['0,1280', '', '0,1280'],
        ['0,1280', '921600,1280', '', ''], ['8294400,1280', '0,1280'], ['0,1280', '8294400,1280'],
        ['-1,1280', '0,1280'], ['0,-1280', '0,1280'], ['0x10,1280', '0,1280'], ['0,0x500', '0,1280'],
        [' 0,1280', '0,1280'], ['0,1280:', '0,1280'], ['18446744073709551616,1280', '0,1280'],
        ['0,18446744073709551616', '0,1280'],
    ].map((planes) => changed({ planes })),
    // Fields too few or too many.
    'frame:0:NV12', 'frame:0:NV12:1280:720:0:0,1280;921600,1280', 'frame:0:::::::::', 'frame:0::::::::::::::',
    `${goodMessage()}:0`, goodMessage().replace(':0:0:0:', ':0:0:0:0:'), goodMessage().replace(':0:0:0:', ':0:0:'),
    goodMessage().replaceAll(':', ';').replace('frame;0;', 'frame:0:'),
];

// Well-formed messages of frames that leave the slot, by a byte or by far more than an address can hold.
const FarFrames = [
    changed({ planes: [[SlotBytes - 1, 1280], [0, 1280]] }), changed({ planes: [[0, 1280], [SlotBytes - 1, 1280]] }),
    changed({ planes: [[SlotBytes - 921600 + 1, 1280], [0, 1280]] }),
    changed({ planes: [[0, 1280], [SlotBytes - 460800 + 1, 1280]] }),
    changed({ format: 'I420', planes: [[0, 1280], [0, 640], [SlotBytes - 230400 + 1, 640]] }),
    changed({ format: 'I420A', planes: [[0, 1280], [SlotBytes - 230400 + 1, 640], [0, 640], [0, 1280]] }),
    rgba({ codedWidth: 1920, codedHeight: 1080, planes: [[1, 7680]] }),
    rgba({ codedWidth: 4096, codedHeight: 2160, planes: [[0, 16384]] }),
    rgba({ codedWidth: 2, codedHeight: 2160, planes: [[0, 3842]] }),
    ...['RGBX', 'BGRA', 'BGRX'].map((format) => rgba({ format, planes: [[SlotBytes - 3686400 + 1, 5120]] })),
    // Strides that come out small where their product with the last row wraps.
    ...[31n, 32n, 63n, 64n].flatMap((bits) => [1n, 359n, 719n].flatMap((lastRow) => [-1n, 0n, 1n].flatMap((more) => {
        const stride = 2n ** bits / lastRow + more;
        return [
            rgba({ planes: [[0, stride]] }), rgba({ codedHeight: 2, planes: [[SlotBytes - 5120, stride]] }),
            changed({ planes: [[0, stride], [0, 1280]] }), changed({ planes: [[0, 1280], [0, stride]] }),
            changed({ format: 'I420', planes: [[0, 1280], [0, 640], [0, stride]] }),
        ];
    }))),
    rgba({ planes: [[0, 2n ** 64n - 1n]] }), rgba({ planes: [[SlotBytes - 1, 2n ** 64n - 1n]] }),
];

// Well-formed messages of pictures that are none.
const UnknownPictures = [
    ...['', 'YUY2', 'nv12', 'NV12 ', ' NV12', 'NV21', 'I420B', 'RGB', 'RGBA8', '\ud83d\ude00', '\ud83d', '%s%n'].map(
        (format) => changed({ format })),
    changed({ planes: [[0, 1280]] }),
    ...['I420', 'I420A'].map((format) => changed({ format, planes: [[0, 1280], [921600, 640]] })),
];

// A page's array of texts of a megabyte and more.
const LongTexts = `[
    'x'.repeat(2 ** 20), 'frame:' + '0'.repeat(2 ** 20),
    'frame:0:' + 'x'.repeat(2 ** 20), 'frame:0:' + ':'.repeat(2 ** 20),
    'frame:0:NV12:' + '9'.repeat(2 ** 20) + ':720:0:0:0:1280:720:0,1280;921600,1280',
    '${goodMessage()}' + ';'.repeat(2 ** 20), '${goodMessage()}' + ';0,0'.repeat(2 ** 18),
    'window:orientation:' + 'portrait'.repeat(2 ** 17), 'quality:' + '1080p'.repeat(2 ** 18),
]`;

test('hostile messages have no effect', async (t) => {
    const slotPage = await startOnSlotPage(t);
    const { run, frameFile } = slotPage;
    const firstFrameTexts = async () => (await logTexts(run)).filter((text) => text.startsWith('First '));
    let fileBefore;
    const assertFileIsAsBefore = async () => {
        assert.ok(fileBefore.equals(await readFile(frameFile.path)), 'the frame file has changed');
    };
    // One by one, so that a failure says which one it was.
    const assertRefused = async (messages, code) => {
        for (const message of messages) {
            assert.deepEqual(await slotPage.post(message), { [code]: 1 }, JSON.stringify(message));
        }
        await assertFileIsAsBefore();
    };

    const step = async (name, body) => {
        t.diagnostic(name);
        await body();
    };

    await step('before the page is ready', async () => {
        assert.deepEqual(await slotPage.post(goodMessage(0), goodMessage(1), ...SlotlessFrames, ...MalformedFrames),
                         { [InvalidArgument]: 2 + SlotlessFrames.length + MalformedFrames.length });
        assert.ok(!frameFile.exists);
        assert.deepEqual(await firstFrameTexts(), []);
    });

    await slotPage.connect();
    await slotPage.fill(0, 1);
    await slotPage.fill(1, 2);
    fileBefore = await readFile(frameFile.path);

    await step('without a slot', async () => {
        await assertRefused(SlotlessFrames, InvalidArgument);
        assert.deepEqual(await firstFrameTexts(), []);
    });
    await step('malformed', async () => {
        const [first] = MalformedFrames;
        await assertRefused(MalformedFrames, InvalidArgument);
        assert.deepEqual(await firstFrameTexts(), [
            `First frame descriptor: ${first}`, `First browser frame published (HRESULT 0x${InvalidArgument})`,
        ]);
    });
    await step('outside the slot', () => assertRefused(FarFrames, InvalidArgument));
    await step('in formats that are none', () => assertRefused(UnknownPictures, InvalidMediaType));
    await step('as no strings', () => assertRefused(
        [{ frame: goodMessage() }, [goodMessage()], [], 0, true, null], InvalidArgument));

    await step('as no command', async () => {
        const texts = [
            goodMessage().toUpperCase(), ` ${goodMessage()}`, 'frame', '', 'Ready', 'ready ', 'caf\u00e9 \u4e2d %s%n',
        ];
        const lines = texts.map((text) => `Web message: ${text.replace('\u4e2d', '?')}`);
        assert.deepEqual(await slotPage.post(...texts), { [Ok]: texts.length });
        assertInOrder(await logTexts(run), lines);
        await assertFileIsAsBefore();
    });
    await step('in megabytes', async () => {
        assert.deepEqual(await slotPage.postAll(LongTexts), { [Ok]: 1, [InvalidArgument]: 8 });
        assertInOrder(await logTexts(run), [`Web message: ${'x'.repeat(2 ** 20)}`]);
        await assertFileIsAsBefore();
    });
    await step('in floods', async () => {
        const kinds = [MalformedFrames[0], FarFrames[0], SlotlessFrames[0], { frame: 0 }, 'flood'];
        assert.deepEqual(
            await slotPage.postAll(`Array.from({ length: 1000 }, (_, i) => ${JSON.stringify(kinds)}[i % 5])`),
            { [InvalidArgument]: 800, [Ok]: 200 });
        assert.equal((await logTexts(run)).filter((text) => text === 'Web message: flood').length, 200);
        await assertFileIsAsBefore();
    });

    await step('good frames are published as if nothing had been', async () => {
        assert.deepEqual(await slotPage.post(goodMessage(0)), { [Ok]: 1 });
        assert.equal(frameFile.header().sequence, 2);
        const longest = `['${goodMessage(1)}' + ';0,1280'.repeat(150000)]`;
        assert.deepEqual(await slotPage.postAll(longest), { [Ok]: 1 });
        assert.equal(frameFile.header().sequence, 4);
        assert.deepEqual(await slotPage.post(...Array(300).fill(goodMessage(1))), { [Ok]: 300 });
        assert.equal(frameFile.header().sequence, 604);
        assert.equal((await firstFrameTexts()).length, 2);
    });
    assert.equal(await run.closeWindow(), 0);
});
