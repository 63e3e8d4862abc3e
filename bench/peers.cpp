#include "bench/peers.h"

#include "frames/conversion/frame_plan.h"

#include <libyuv.h>

extern "C" {
#include <libswscale/swscale.h>
}

#include <array>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace receiver {
namespace {

// Planes in NV12 (two) or I420 (three).
struct Planes {
    std::uint8_t* y = nullptr;
    std::uint8_t* u = nullptr; // the pairs in NV12
    std::uint8_t* v = nullptr;
    int stride = 0; // of luma; that of pairs is the same, that of single chroma bytes half
};

Planes PlanesIn(std::uint8_t* bytes, int width, int height) {
    const std::ptrdiff_t luma = std::ptrdiff_t{width} * height;
    return {bytes, bytes + luma, bytes + luma + luma / 4, width};
}

void Check(int result) {
    if (result != 0) {
        throw std::runtime_error("a peer's conversion failed");
    }
}

void ClearBars(const FrameCase& frameCase, const PictureRectangle& picture, std::uint8_t* canvas) {
    const auto clear = [](std::uint8_t* plane, std::size_t stride, std::size_t rows, std::size_t left, std::size_t top,
                          std::size_t width, std::size_t height, int value) {
        std::memset(plane, value, top * stride);
        for (std::size_t row = top; row < top + height; ++row) {
            std::memset(plane + row * stride, value, left);
            std::memset(plane + row * stride + left + width, value, stride - left - width);
        }
        std::memset(plane + (top + height) * stride, value, (rows - top - height) * stride);
    };
    const std::size_t stride = frameCase.canvasWidth;
    const std::size_t rows = frameCase.canvasHeight;
    clear(canvas, stride, rows, picture.x, picture.y, picture.width, picture.height, 16);
    clear(canvas + stride * rows, stride, rows / 2, picture.x, picture.y / 2, picture.width, picture.height / 2, 128);
}

// The sizes of one conversion, and the memory for its intermediate results.
class LibyuvPeer {
public:
    LibyuvPeer(const FrameCase& newCase, bool newClearBars) : frameCase(newCase), clearBars(newClearBars) {
        const FrameDescriptor frame = frameCase.Descriptor();
        picture = FitPicture(frame.displayWidth, frame.displayHeight, frameCase.canvasWidth, frameCase.canvasHeight);
        isWholeCanvas = picture.width == frameCase.canvasWidth && picture.height == frameCase.canvasHeight;
    }

    void operator()(const std::uint8_t* slot, std::uint8_t* canvas) {
        if (clearBars && !isWholeCanvas) {
            ClearBars(frameCase, picture, canvas);
        }
        const Planes whole = PlanesIn(canvas, Int(frameCase.canvasWidth), Int(frameCase.canvasHeight));
        const Planes target{whole.y + std::ptrdiff_t{picture.y} * whole.stride + picture.x,
                            whole.u + std::ptrdiff_t{picture.y / 2} * whole.stride + picture.x, nullptr, whole.stride};
        if (frameCase.format == L"NV12") {
            FromNv12(slot, target);
        } else if (frameCase.format == L"I420") {
            FromI420(slot, target);
        } else {
            FromPixels(slot, target);
        }
    }

private:
    static int Int(std::uint32_t value) { return static_cast<int>(value); }

    std::uint8_t* Memory(std::size_t index, std::size_t bytes) {
        memory[index].resize(bytes);
        return memory[index].data();
    }
    [[nodiscard]] bool KeepsSize() const {
        return picture.width == frameCase.width && picture.height == frameCase.height;
    }

    void FromNv12(const std::uint8_t* slot, const Planes& target) {
        const int width = Int(frameCase.width);
        const int height = Int(frameCase.height);
        const std::uint8_t* pairs = slot + std::ptrdiff_t{width} * height;
        const int upsideDown = frameCase.rotation == 180 ? -height : height;
        if (frameCase.IsTransposed()) {
            // Scaled first, so that less has to be rotated.
            const int unrotatedWidth = Int(picture.height);
            const int unrotatedHeight = Int(picture.width);
            const std::size_t bytes = std::size_t{picture.width} * picture.height * 3 / 2;
            const Planes unrotated = PlanesIn(Memory(0, bytes), unrotatedWidth, unrotatedHeight);
            Check(libyuv::NV12Scale(slot, width, pairs, width, width, height, unrotated.y, unrotatedWidth, unrotated.u,
                                    unrotatedWidth, unrotatedWidth, unrotatedHeight, libyuv::kFilterNone));
            const Planes rotated = PlanesIn(Memory(1, bytes), unrotatedHeight, unrotatedWidth);
            Check(libyuv::NV12ToI420Rotate(unrotated.y, unrotatedWidth, unrotated.u, unrotatedWidth, rotated.y,
                                           rotated.stride, rotated.u, rotated.stride / 2, rotated.v, rotated.stride / 2,
                                           unrotatedWidth, unrotatedHeight,
                                           static_cast<libyuv::RotationMode>(frameCase.rotation)));
            Interleave(rotated, target);
        } else if (!KeepsSize()) {
            Check(libyuv::NV12Scale(slot, width, pairs, width, width, height, target.y, target.stride, target.u,
                                    target.stride, Int(picture.width), Int(picture.height), libyuv::kFilterNone));
        } else if (frameCase.mirrored == (frameCase.rotation == 180)) {
            Check(libyuv::NV12Copy(slot, width, pairs, width, target.y, target.stride, target.u, target.stride, width,
                                   upsideDown));
        } else {
            Check(libyuv::NV12Mirror(slot, width, pairs, width, target.y, target.stride, target.u, target.stride, width,
                                     upsideDown));
        }
    }

    void FromI420(const std::uint8_t* slot, const Planes& target) {
        const int width = Int(frameCase.width);
        const int height = Int(frameCase.height);
        const std::uint8_t* u = slot + std::ptrdiff_t{width} * height;
        const std::uint8_t* v = u + std::ptrdiff_t{width} * height / 4;
        if (KeepsSize()) {
            Check(libyuv::I420ToNV12(slot, width, u, width / 2, v, width / 2, target.y, target.stride, target.u,
                                     target.stride, width, height));
            return;
        }
        const Planes scaled = PlanesIn(Memory(0, std::size_t{picture.width} * picture.height * 3 / 2),
                                       Int(picture.width), Int(picture.height));
        Check(libyuv::I420Scale(slot, width, u, width / 2, v, width / 2, width, height, scaled.y, scaled.stride,
                                scaled.u, scaled.stride / 2, scaled.v, scaled.stride / 2, Int(picture.width),
                                Int(picture.height), libyuv::kFilterNone));
        Interleave(scaled, target);
    }

    void FromPixels(const std::uint8_t* slot, const Planes& target) {
        int width = Int(frameCase.width);
        int height = Int(frameCase.height);
        const std::uint8_t* pixels = slot;
        if (frameCase.mirrored) {
            std::uint8_t* const mirrored = Memory(0, std::size_t{4} * frameCase.width * frameCase.height);
            Check(libyuv::ARGBMirror(pixels, 4 * width, mirrored, 4 * width, width, height));
            pixels = mirrored;
        }
        if (picture.width < frameCase.width) { // The smaller picture is what is worth converting, before or after.
            width = Int(picture.width);
            height = Int(picture.height);
            std::uint8_t* const scaled = Memory(1, std::size_t{4} * picture.width * picture.height);
            Check(libyuv::ARGBScale(pixels, 4 * Int(frameCase.width), Int(frameCase.width), Int(frameCase.height),
                                    scaled, 4 * width, width, height, libyuv::kFilterNone));
            pixels = scaled;
        }
        // libyuv names the bytes of a pixel from the last to the first.
        const auto convert = frameCase.format == L"RGBA" ? &libyuv::ABGRToNV12 : &libyuv::ARGBToNV12;
        if (picture.width <= frameCase.width) {
            Check(convert(pixels, 4 * width, target.y, target.stride, target.u, target.stride, width, height));
            return;
        }
        const Planes small =
            PlanesIn(Memory(1, std::size_t{frameCase.width} * frameCase.height * 3 / 2), width, height);
        Check(convert(pixels, 4 * width, small.y, width, small.u, width, width, height));
        Check(libyuv::NV12Scale(small.y, width, small.u, width, width, height, target.y, target.stride, target.u,
                                target.stride, Int(picture.width), Int(picture.height), libyuv::kFilterNone));
    }

    void Interleave(const Planes& source, const Planes& target) const {
        Check(libyuv::I420ToNV12(source.y, source.stride, source.u, source.stride / 2, source.v, source.stride / 2,
                                 target.y, target.stride, target.u, target.stride, Int(picture.width),
                                 Int(picture.height)));
    }

    const FrameCase frameCase;
    const bool clearBars;
    PictureRectangle picture;
    bool isWholeCanvas = false;
    std::array<std::vector<std::uint8_t>, 2> memory;
};

using SwsContextOwner = std::unique_ptr<SwsContext, decltype(&sws_freeContext)>;

SwsContextOwner MakeSwsContext(std::uint32_t width, std::uint32_t height, AVPixelFormat from, std::uint32_t newWidth,
                               std::uint32_t newHeight, AVPixelFormat to) {
    SwsContextOwner context(sws_getContext(static_cast<int>(width), static_cast<int>(height), from,
                                           static_cast<int>(newWidth), static_cast<int>(newHeight), to, SWS_POINT,
                                           nullptr, nullptr, nullptr),
                            &sws_freeContext);
    if (!context) {
        throw std::runtime_error("swscale does not do this");
    }
    return context;
}

void RunSws(SwsContext* context, const std::uint8_t* const* source, const int* sourceStrides, std::uint32_t height,
            std::uint8_t* const* target, const int* targetStrides, std::uint32_t newHeight) {
    if (sws_scale(context, source, sourceStrides, 0, static_cast<int>(height), target, targetStrides) !=
        static_cast<int>(newHeight)) {
        throw std::runtime_error("swscale failed");
    }
}

} // namespace

PeerConversion LibyuvConversion(const FrameCase& frameCase, bool clearBars) {
    const auto peer = std::make_shared<LibyuvPeer>(frameCase, clearBars);
    return [peer](const std::uint8_t* slot, std::uint8_t* canvas) { (*peer)(slot, canvas); };
}

PeerConversion SwscaleConversion(const FrameCase& frameCase, bool clearBars) {
    const FrameDescriptor frame = frameCase.Descriptor();
    const PictureRectangle picture =
        FitPicture(frame.displayWidth, frame.displayHeight, frameCase.canvasWidth, frameCase.canvasHeight);
    const bool keepsSize = picture.width == frameCase.width && picture.height == frameCase.height;
    if (frameCase.rotation != 0 || frameCase.mirrored || (frameCase.format == L"NV12" && keepsSize)) {
        return {};
    }
    const AVPixelFormat format = frameCase.format == L"NV12"   ? AV_PIX_FMT_NV12
                                 : frameCase.format == L"I420" ? AV_PIX_FMT_YUV420P
                                 : frameCase.format == L"RGBA" ? AV_PIX_FMT_RGBA
                                                               : AV_PIX_FMT_BGRA;
    const std::shared_ptr<SwsContext> context =
        MakeSwsContext(frameCase.width, frameCase.height, format, picture.width, picture.height, AV_PIX_FMT_NV12);
    return [=](const std::uint8_t* slot, std::uint8_t* canvas) {
        if (clearBars) {
            ClearBars(frameCase, picture, canvas);
        }
        std::array<const std::uint8_t*, 4> source{};
        std::array<int, 4> sourceStrides{};
        for (std::size_t plane = 0; plane < frame.planeCount; ++plane) {
            source[plane] = slot + frame.planes[plane].offset;
            sourceStrides[plane] = static_cast<int>(frame.planes[plane].stride);
        }
        const std::size_t stride = frameCase.canvasWidth;
        const std::array<std::uint8_t*, 4> target{canvas + picture.y * stride + picture.x,
                                                  canvas + stride * frameCase.canvasHeight + picture.y / 2 * stride +
                                                      picture.x};
        const std::array<int, 4> targetStrides{static_cast<int>(stride), static_cast<int>(stride)};
        RunSws(context.get(), source.data(), sourceStrides.data(), frameCase.height, target.data(),
               targetStrides.data(), picture.height);
    };
}

void LibyuvSnapshot(const std::uint8_t* frame, std::uint32_t width, std::uint32_t height, std::uint8_t* pixels) {
    const int w = static_cast<int>(width);
    Check(libyuv::NV12ToRGB24(frame, w, frame + std::size_t{width} * height, w, pixels, 3 * w, w,
                              static_cast<int>(height)));
}

PeerConversion LibyuvCamera(sample_camera::PictureSize frameSize, const sample_camera::VideoFormat& format) {
    const int width = static_cast<int>(format.size.width);
    const int height = static_cast<int>(format.size.height);
    const bool scales = frameSize != format.size;
    const bool isNv12 = format.pixels == sample_camera::PixelFormat::Nv12;
    const auto scaled =
        std::make_shared<std::vector<std::uint8_t>>(std::size_t{3} * format.size.width * format.size.height / 2);
    return [=](const std::uint8_t* frame, std::uint8_t* picture) {
        const std::uint8_t* source = frame;
        if (scales) {
            std::uint8_t* const target = isNv12 ? picture : scaled->data();
            const int srcWidth = static_cast<int>(frameSize.width);
            const int srcHeight = static_cast<int>(frameSize.height);
            Check(libyuv::NV12Scale(frame, srcWidth, frame + std::ptrdiff_t{srcWidth} * srcHeight, srcWidth, srcWidth,
                                    srcHeight, target, width, target + std::ptrdiff_t{width} * height, width, width,
                                    height, libyuv::kFilterBilinear));
            source = target;
        }
        const std::uint8_t* const pairs = source + std::ptrdiff_t{width} * height;
        switch (format.pixels) {
        case sample_camera::PixelFormat::Nv12:
            if (!scales) {
                libyuv::CopyPlane(source, width, picture, width, width, height * 3 / 2);
            }
            break;
        case sample_camera::PixelFormat::Yuy2: // two rows of Y share a row of pairs
            for (std::ptrdiff_t y = 0; y < height; y += 2) {
                libyuv::MergeUVPlane(source + y * width, width, pairs + y / 2 * width, 0, picture + y * width * 2,
                                     width * 2, width, 2);
            }
            break;
        case sample_camera::PixelFormat::I420: {
            std::uint8_t* const u = picture + std::ptrdiff_t{width} * height;
            Check(libyuv::NV12ToI420(source, width, pairs, width, picture, width, u, width / 2,
                                     u + std::ptrdiff_t{width} * height / 4, width / 2, width, height));
            break;
        }
        }
    };
}

PeerConversion SwscaleSnapshot(std::uint32_t width, std::uint32_t height) {
    const std::shared_ptr<SwsContext> context =
        MakeSwsContext(width, height, AV_PIX_FMT_NV12, width, height, AV_PIX_FMT_BGR24);
    return [=](const std::uint8_t* frame, std::uint8_t* pixels) {
        const int stride = static_cast<int>(width);
        const std::array<const std::uint8_t*, 4> source{frame, frame + std::size_t{width} * height};
        const std::array<int, 4> sourceStrides{stride, stride};
        const std::array<std::uint8_t*, 4> target{pixels};
        const std::array<int, 4> targetStrides{3 * stride};
        RunSws(context.get(), source.data(), sourceStrides.data(), height, target.data(), targetStrides.data(), height);
    };
}

} // namespace receiver
