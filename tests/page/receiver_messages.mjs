// The table of messages that the receiver and its simulator must treat alike. The order matters: each message meets the
// state that those before it have left.
import { readFileSync } from 'node:fs';

const groups = JSON.parse(readFileSync(new URL('receiver_messages.json', import.meta.url), 'utf8'));

// { what, message, code }: what the message is an example of, and the receiver's result in hexadecimal.
export const receiverMessages = groups.flatMap(({ what, code, messages }) =>
    messages.map((message) => ({ what, message, code })));
