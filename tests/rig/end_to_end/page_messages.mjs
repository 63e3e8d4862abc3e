// What the receiver posts to its page, word for word.
export const UsageOn = '{"type":"virtual-camera-usage","active":true}';
export const UsageOff = '{"type":"virtual-camera-usage","active":false}';

// `build` is the system's, as in "10.0.22631".
export function diagnostics(version, { osSupported, virtualCameraRegistered }) {
    const build = version.split('.')[2];
    return `{"type":"diagnostics","diagnostics":{"windowsVersion":"${version}","buildNumber":${build},` +
        `"architecture":"x64","osSupported":${osSupported},"webView2Ready":true,` +
        `"virtualCameraRegistered":${virtualCameraRegistered},"appVersion":"0.1.3"}}`;
}
