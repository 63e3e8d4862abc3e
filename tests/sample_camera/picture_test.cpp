#include "sample_camera/picture.h"

#include "tests/sample_camera/picture_reference.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

namespace sample_camera {
namespace {

constexpr std::uint8_t Untouched = 0xA5;
constexpr std::size_t GuardBytes = 64;

std::vector<std::uint8_t> Noise(PictureSize size) {
    std::mt19937 random(size.width);
    std::vector<std::uint8_t> picture(ImageBytes({PixelFormat::Nv12, size}));
    for (std::uint8_t& byte : picture) {
        byte = static_cast<std::uint8_t>(random());
    }
    return picture;
}

void ExpectGuardUntouched(const std::vector<std::uint8_t>& guarded) {
    for (std::size_t i = guarded.size() - GuardBytes; i < guarded.size(); ++i) {
        ASSERT_EQ(guarded[i], Untouched);
    }
}

TEST(VideoFormat, SizesAndCodesAreThoseOfTheFormats) {
    EXPECT_EQ(ImageBytes({PixelFormat::Nv12, Size720p}), 1382400U);
    EXPECT_EQ(ImageBytes({PixelFormat::I420, Size1080p}), 3110400U);
    EXPECT_EQ(ImageBytes({PixelFormat::Yuy2, Size1080p}), 4147200U);
    EXPECT_EQ(FourCc(PixelFormat::Nv12), 0x3231564EU);
    EXPECT_EQ(FourCc(PixelFormat::Yuy2), 0x32595559U);
    EXPECT_EQ(FourCc(PixelFormat::I420), 0x30323449U);
}

TEST(ConvertNv12, EqualsTheReferenceInEachFormat) {
    for (const VideoFormat& format : VideoFormats) {
        const std::vector<std::uint8_t> source = Noise(format.size);
        std::vector<std::uint8_t> picture(ImageBytes(format) + GuardBytes, Untouched);
        ConvertNv12(source.data(), picture.data(), format);
        ExpectGuardUntouched(picture);
        picture.resize(ImageBytes(format));
        EXPECT_EQ(picture, ReferenceConversion(source.data(), format)) << FourCc(format.pixels);
    }
}

// A rounding in each direction costs at most half a step, and the weights in 256ths a little more.
TEST(ScaleNv12, IsBilinearInBothRatios) {
    for (const PictureSize from : {Size720p, Size1080p}) {
        const PictureSize to = from == Size720p ? Size1080p : Size720p;
        const std::vector<std::uint8_t> source = Noise(from);
        std::vector<std::uint8_t> scaled(ImageBytes({PixelFormat::Nv12, to}) + GuardBytes, Untouched);
        ScaleNv12(source.data(), from, scaled.data());
        ExpectGuardUntouched(scaled);
        EXPECT_LT(LargestScalingError({source.data(), from}, {scaled.data(), to}), 1.6) << from.width;
    }
}

TEST(ScaleNv12, KeepsAnEvenPictureAsItIs) {
    for (const PictureSize from : {Size720p, Size1080p}) {
        const PictureSize to = from == Size720p ? Size1080p : Size720p;
        for (const int value : {0, 1, 128, 254, 255}) {
            const std::vector<std::uint8_t> source(ImageBytes({PixelFormat::Nv12, from}),
                                                   static_cast<std::uint8_t>(value));
            std::vector<std::uint8_t> scaled(ImageBytes({PixelFormat::Nv12, to}), Untouched);
            ScaleNv12(source.data(), from, scaled.data());
            EXPECT_EQ(scaled, std::vector<std::uint8_t>(scaled.size(), static_cast<std::uint8_t>(value)));
        }
    }
}

TEST(ConvertFrame, ScalesAndConvertsAsFarAsNecessary) {
    for (const VideoFormat& format : VideoFormats) {
        for (const PictureSize from : {Size720p, Size1080p}) {
            const std::vector<std::uint8_t> source = Noise(from);
            std::vector<std::uint8_t> nv12 = source;
            if (from != format.size) {
                nv12.resize(ImageBytes({PixelFormat::Nv12, format.size}));
                ScaleNv12(source.data(), from, nv12.data());
            }
            std::vector<std::uint8_t> scaled(ImageBytes({PixelFormat::Nv12, format.size}) + GuardBytes, Untouched);
            std::vector<std::uint8_t> picture(ImageBytes(format) + GuardBytes, Untouched);
            ConvertFrame(source.data(), from, scaled.data(), picture.data(), format);
            ExpectGuardUntouched(scaled);
            ExpectGuardUntouched(picture);
            picture.resize(ImageBytes(format));
            EXPECT_EQ(picture, ReferenceConversion(nv12.data(), format)) << FourCc(format.pixels) << from.height;
        }
    }
}

} // namespace
} // namespace sample_camera
