// What the receiver posts to its page: texts word for word, and answers as they are once parsed.
export const UsageOn = '{"type":"virtual-camera-usage","active":true}';
export const UsageOff = '{"type":"virtual-camera-usage","active":false}';

// `build` is the system's, as in "10.0.22631".
export function diagnostics(version, { osSupported, virtualCameraRegistered }) {
    const build = version.split('.')[2];
    return `{"type":"diagnostics","diagnostics":{"windowsVersion":"${version}","buildNumber":${build},` +
        `"architecture":"x64","osSupported":${osSupported},"webView2Ready":true,` +
        `"virtualCameraRegistered":${virtualCameraRegistered},"appVersion":"0.1.3"}}`;
}

export const mediaResult = (action, path, error = 0) => ({
    type: 'media-result', action, success: error < 0x80000000, path, error,
});
