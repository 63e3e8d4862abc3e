// The receiver simulator of examples/page/ against the receiver: each message of one table goes through both. Results,
// pictures, answers and logs must be equal.
import assert from 'node:assert/strict';
import { createHash } from 'node:crypto';
import { test } from 'node:test';
import { isDeepStrictEqual } from 'node:util';

import { hexadecimal, ReceiverModel } from '../../../examples/page/simulator/receiver_model.mjs';
import { receiverMessages } from '../../page/receiver_messages.mjs';
import { fillNoise } from './pages/noise.mjs';
import { logTexts } from './receiver_texts.mjs';
import { Ok, startOnSlotPage } from './slot_page_run.mjs';

const SlotSeeds = [1, 2];

// An answer without what differs from run to run and from machine to machine.
function comparable(json) {
    return json.replace(/"path":"[^"]*(Pictures|Videos)(.*?)Vistel-\d{8}-\d{6}-\d{3}/, '"path":"$1$2TIME')
        .replace(/"windowsVersion":"[\d.]+","buildNumber":\d+/, '"windowsVersion":"VERSION","buildNumber":BUILD')
        .replace(/"(osSupported|virtualCameraRegistered)":(?:true|false)/g, '"$1":BOOLEAN');
}

function describePicture({ bytes, width, height }) {
    return `${width} x ${height}, SHA-256 ${createHash('sha256').update(bytes).digest('hex')}`;
}

const isReady = (message) => typeof message === 'string' && message.split('\0')[0] === 'ready';
const publishes = ({ message, code }) => code === Ok && String(message).startsWith('frame:');

// The table in steps: messages of a group that publish nothing go together, because the way through the rig takes long.
function* steps() {
    let together = [];
    for (const entry of receiverMessages) {
        const isAlone = publishes(entry) || isReady(entry.message);
        if (together.length > 0 && (isAlone || entry.what !== together[0].what)) {
            yield together;
            together = [];
        }
        if (isAlone) {
            yield [entry];
        } else {
            together.push(entry);
        }
    }
    yield together;
}

// { code: how often }
function tally(codes) {
    const counts = {};
    for (const code of codes) {
        counts[code] = (counts[code] ?? 0) + 1;
    }
    return counts;
}

class Simulator {
    log = [];
    #answers = [];
    #model = new ReceiverModel({
        postSlot: (slot, buffer) => fillNoise(new Uint32Array(buffer), SlotSeeds[slot]),
        postJson: (json) => this.#answers.push(json),
        log: (line) => this.log.push(line),
    });

    handle(messages) {
        const before = this.#model.framesPublished;
        const codes = messages.map((message) => hexadecimal(this.#model.handle(message).code).slice(2));
        return {
            codes,
            picture: this.#model.framesPublished > before ? describePicture(this.#model.picture) : 'none',
            answers: this.#answers.splice(0).map(comparable),
        };
    }
}

class Receiver {
    #slotPage;
    #answers = [];
    #sequence = 0;

    constructor(slotPage) {
        this.#slotPage = slotPage;
        slotPage.run.browser.events.on('json', (json) => this.#answers.push(json));
    }

    async handle(messages) {
        const codes = await this.#slotPage.post(...messages);
        if (messages.some(isReady)) {
            await this.#slotPage.fill(0, SlotSeeds[0]);
            await this.#slotPage.fill(1, SlotSeeds[1]);
        }
        return { codes, picture: await this.#takePicture(), answers: this.#answers.splice(0).map(comparable) };
    }

    async #takePicture() {
        const { frameFile } = this.#slotPage;
        if (!frameFile.exists || frameFile.header().sequence === this.#sequence) {
            return 'none';
        }
        const { sequence, picture: bytes, width, height } = await frameFile.newestFrame();
        assert.equal(sequence, this.#sequence + 2);
        this.#sequence = sequence;
        return describePicture({ bytes, width, height });
    }
}

test('the simulator judges and draws as the receiver does', async (t) => {
    const slotPage = await startOnSlotPage(t);
    const linesBefore = (await logTexts(slotPage.run)).length;
    const receiver = new Receiver(slotPage);
    const simulator = new Simulator();
    const differences = [];
    for (const entries of steps()) {
        const messages = entries.map(({ message }) => message);
        const codes = entries.map(({ code }) => code);
        const wanted = await receiver.handle(messages);
        const found = simulator.handle(messages);
        // Of the receiver only the number of each code is known.
        if (!isDeepStrictEqual(wanted, { ...found, codes: tally(codes) }) || !isDeepStrictEqual(found.codes, codes)) {
            differences.push({ what: entries[0].what, messages, codes, receiver: wanted, simulator: found });
        }
    }
    assert.deepEqual(differences, []);
    const receiverLog = (await logTexts(slotPage.run)).slice(linesBefore);
    assert.deepEqual(simulator.log, receiverLog.filter((line) => !/^Web message: mark \d+$/.test(line)));
    assert.equal(await slotPage.run.closeWindow(), 0);
});
