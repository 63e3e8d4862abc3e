#include "frames/conversion/row_kernels.h"

#ifdef _MSC_VER
#include <immintrin.h>
#include <intrin.h>
#endif

namespace receiver {

bool Avx2Usable() noexcept {
#ifdef _MSC_VER
    constexpr int Needed = 1 << 27 | 1 << 28; // leaf 1, ECX: OSXSAVE and AVX
    constexpr int Avx2 = 1 << 5; // leaf 7, EBX
    constexpr unsigned long long VectorState = 0x6; // XCR0: the system saves XMM and YMM registers
    int registers[4] = {};
    __cpuid(registers, 0);
    const int highestLeaf = registers[0];
    __cpuid(registers, 1);
    if (highestLeaf < 7 || (registers[2] & Needed) != Needed || (_xgetbv(0) & VectorState) != VectorState) {
        return false;
    }
    __cpuidex(registers, 7, 0);
    return (registers[1] & Avx2) != 0;
#else
    return static_cast<bool>(__builtin_cpu_supports("avx2"));
#endif
}

const RowKernels& BestKernels() noexcept {
    static const RowKernels& best = Avx2Usable() ? Avx2Kernels : ScalarKernels;
    return best;
}

} // namespace receiver
