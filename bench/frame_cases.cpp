#include "bench/frame_cases.h"

#include "frames/conversion/frame_plan.h"

#include <algorithm>

namespace receiver {
namespace {

std::size_t RowsUsed(std::uint64_t sourceRows, std::uint32_t pictureRows) {
    return static_cast<std::size_t>(std::min<std::uint64_t>(sourceRows, pictureRows));
}

} // namespace

FrameDescriptor FrameCase::Descriptor() const {
    FrameDescriptor frame;
    frame.format = format;
    frame.codedWidth = width;
    frame.codedHeight = height;
    frame.rotation = rotation;
    frame.flipA = mirrored;
    frame.displayWidth = IsTransposed() ? height : width;
    frame.displayHeight = IsTransposed() ? width : height;
    const std::uint64_t luma = std::uint64_t{width} * height;
    if (format == L"NV12") {
        frame.AddPlane({0, width});
        frame.AddPlane({luma, width});
    } else if (format == L"I420") {
        frame.AddPlane({0, width});
        frame.AddPlane({luma, width / 2});
        frame.AddPlane({luma * 5 / 4, width / 2});
    } else {
        frame.AddPlane({0, std::uint64_t{4} * width});
    }
    return frame;
}

std::size_t FrameCase::SourceBytes() const {
    const FrameDescriptor frame = Descriptor();
    const PictureRectangle picture = FitPicture(frame.displayWidth, frame.displayHeight, canvasWidth, canvasHeight);
    const std::uint32_t pictureRows = IsTransposed() ? picture.width : picture.height;
    const std::size_t lumaRow = std::size_t{width} * (frame.planeCount == 1 ? 4 : 1);
    const std::size_t chromaRow = frame.planeCount == 1 ? 0 : width;
    return RowsUsed(height, pictureRows) * lumaRow + RowsUsed(height / 2, pictureRows / 2) * chromaRow;
}

const std::vector<FrameCase>& FrameCases() {
    static const std::vector<FrameCase> cases{
        {"720p NV12", L"NV12", 1280, 720, 0, false, 1280, 720},
        {"1080p NV12", L"NV12", 1920, 1080, 0, false, 1920, 1080},
        {"1080p I420", L"I420", 1920, 1080, 0, false, 1920, 1080},
        {"1080p RGBA", L"RGBA", 1920, 1080, 0, false, 1920, 1080},
        {"1080p BGRA", L"BGRA", 1920, 1080, 0, false, 1920, 1080},
        {"720p NV12 on 1080p", L"NV12", 1280, 720, 0, false, 1920, 1080},
        {"1080p NV12 on 720p", L"NV12", 1920, 1080, 0, false, 1280, 720},
        {"640x480 I420 on 720p", L"I420", 640, 480, 0, false, 1280, 720},
        {"720x1280 NV12 on 1080p", L"NV12", 720, 1280, 0, false, 1920, 1080},
        {"720p NV12 rotated 90", L"NV12", 1280, 720, 90, false, 1280, 720},
        {"720x1280 NV12 rotated 90", L"NV12", 720, 1280, 90, false, 1280, 720},
        {"720p NV12 rotated 270", L"NV12", 1280, 720, 270, false, 1280, 720},
        {"720p NV12 rotated 180", L"NV12", 1280, 720, 180, false, 1280, 720},
        {"720p NV12 mirrored", L"NV12", 1280, 720, 0, true, 1280, 720},
        {"720p NV12 rotated 180 and mirrored", L"NV12", 1280, 720, 180, true, 1280, 720},
        {"720p RGBA mirrored", L"RGBA", 1280, 720, 0, true, 1280, 720},
        {"720p RGBA on 1080p", L"RGBA", 1280, 720, 0, false, 1920, 1080},
        {"1080p RGBA on 720p", L"RGBA", 1920, 1080, 0, false, 1280, 720},
        {"1440p NV12 on 1080p", L"NV12", 2560, 1440, 0, false, 1920, 1080},
        {"1080p NV12 rotated 90", L"NV12", 1920, 1080, 90, false, 1920, 1080},
        {"720p I420 rotated 90", L"I420", 1280, 720, 90, false, 1280, 720},
        {"720p RGBA rotated 90", L"RGBA", 1280, 720, 90, false, 1280, 720},
    };
    return cases;
}

} // namespace receiver
