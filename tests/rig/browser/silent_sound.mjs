// A sound for pages, which cannot be heard.

// The address of a WAV file of a second: the bytes of its header and then one value all the time.
export const SilentSound = 'data:audio/wav;base64,UklGRmYfAABXQVZFZm10IBAAAAABAAEAQB8AAEAfAAABAAgAZGF0YUIfAAAA' +
    'A'.repeat(10668);

// Evaluated in a page: "plays", or the name of the error.
export const PlaySound = `new Audio('${SilentSound}').play().then(() => 'plays', (error) => error.name)`;
