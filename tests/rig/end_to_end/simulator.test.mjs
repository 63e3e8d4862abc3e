// The receiver simulator of examples/page/ against the receiver: each message of one table goes through both. Results,
// pictures, answers and logs must be equal.
import assert from 'node:assert/strict';
import { createHash } from 'node:crypto';
import { test } from 'node:test';

import { hexadecimal, ReceiverModel } from '../../../examples/page/simulator/receiver_model.mjs';
import { receiverMessages } from '../../page/receiver_messages.mjs';
import { fillNoise } from './pages/noise.mjs';
import { logTexts } from './receiver_texts.mjs';
import { startOnSlotPage } from './slot_page_run.mjs';

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

class Simulator {
    answers = [];
    log = [];
    #model = new ReceiverModel({
        postSlot: (slot, buffer) => fillNoise(new Uint32Array(buffer), SlotSeeds[slot]),
        postJson: (json) => this.answers.push(json),
        log: (line) => this.log.push(line),
    });

    handle(message) {
        const before = this.#model.framesPublished;
        const { code } = this.#model.handle(message);
        return {
            code: hexadecimal(code),
            picture: this.#model.framesPublished > before ? describePicture(this.#model.picture) : 'none',
            answers: this.answers.splice(0).map(comparable),
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

    async handle(message) {
        const codes = Object.keys(await this.#slotPage.post(message));
        if (typeof message === 'string' && message.split('\0')[0] === 'ready') {
            await this.#slotPage.fill(0, SlotSeeds[0]);
            await this.#slotPage.fill(1, SlotSeeds[1]);
        }
        return {
            code: codes.map((code) => `0x${code}`).join(),
            picture: await this.#takePicture(),
            answers: this.#answers.splice(0).map(comparable),
        };
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
    for (const { what, message, code } of receiverMessages) {
        const wanted = await receiver.handle(message);
        const found = simulator.handle(message);
        if (wanted.code !== `0x${code}` || JSON.stringify(found) !== JSON.stringify(wanted)) {
            differences.push({ what, message, code, receiver: wanted, simulator: found });
        }
    }
    assert.deepEqual(differences, []);
    const receiverLog = (await logTexts(slotPage.run)).slice(linesBefore);
    assert.deepEqual(simulator.log, receiverLog.filter((line) => !/^Web message: mark \d+$/.test(line)));
    assert.equal(await slotPage.run.closeWindow(), 0);
});
