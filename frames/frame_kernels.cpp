#include "frames/frame_kernels.h"

#ifdef _MSC_VER
#include <immintrin.h>
#include <intrin.h>
#else
#include <cpuid.h>
#endif

namespace receiver {
namespace {

constexpr std::uint32_t Osxsave = 1U << 27; // leaf 1, ECX
constexpr std::uint32_t Avx = 1U << 28; // leaf 1, ECX
constexpr std::uint32_t Avx2 = 1U << 5; // leaf 7, EBX
constexpr std::uint64_t VectorState = 0x6; // XCR0: the system saves XMM and YMM registers

struct Registers {
    std::uint32_t eax = 0;
    std::uint32_t ebx = 0;
    std::uint32_t ecx = 0;
    std::uint32_t edx = 0;
};

Registers Cpuid(std::uint32_t leaf) noexcept {
    Registers result;
#ifdef _MSC_VER
    int values[4] = {};
    __cpuidex(values, static_cast<int>(leaf), 0);
    result = {static_cast<std::uint32_t>(values[0]), static_cast<std::uint32_t>(values[1]),
              static_cast<std::uint32_t>(values[2]), static_cast<std::uint32_t>(values[3])};
#else
    __cpuid_count(leaf, 0, result.eax, result.ebx, result.ecx, result.edx);
#endif
    return result;
}

std::uint64_t Xgetbv() noexcept {
#ifdef _MSC_VER
    return _xgetbv(0);
#else
    std::uint32_t low = 0;
    std::uint32_t high = 0;
    // The intrinsic would need a compiler option that this file must do without.
    __asm__("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
    return (static_cast<std::uint64_t>(high) << 32) | low;
#endif
}

} // namespace

CpuReport ReadCpuReport() noexcept {
    CpuReport report;
    report.highestLeaf = Cpuid(0).eax;
    report.leaf1Ecx = Cpuid(1).ecx;
    report.leaf7Ebx = report.highestLeaf >= 7 ? Cpuid(7).ebx : 0;
    report.xcr0 = (report.leaf1Ecx & Osxsave) != 0 ? Xgetbv() : 0;
    return report;
}

bool Avx2Usable(const CpuReport& report) noexcept {
    constexpr std::uint32_t Needed = Osxsave | Avx;
    return report.highestLeaf >= 7 && (report.leaf1Ecx & Needed) == Needed && (report.leaf7Ebx & Avx2) != 0 &&
           (report.xcr0 & VectorState) == VectorState;
}

const FrameKernels& BestKernels() noexcept {
    static const FrameKernels& best = Avx2Usable(ReadCpuReport()) ? Avx2Kernels : ScalarKernels;
    return best;
}

} // namespace receiver
