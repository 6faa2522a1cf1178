// The bytes that stand for themselves inside a JSON string: all from 0x20 up but the quote and the backslash.
#pragma once

#include <bit>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace quelm {

inline bool isPlain(char c) {
    return static_cast<unsigned char>(c) >= 0x20 && c != '"' && c != '\\';
}

#ifdef __SSE2__
// A bit per byte, set for those that are not plain.
inline unsigned notPlainMask(__m128i bytes) {
    const __m128i lastControl = _mm_set1_epi8(0x1f);
    const __m128i control = _mm_cmpeq_epi8(_mm_max_epu8(bytes, lastControl), lastControl);
    const __m128i quote = _mm_cmpeq_epi8(bytes, _mm_set1_epi8('"'));
    const __m128i backslash = _mm_cmpeq_epi8(bytes, _mm_set1_epi8('\\'));
    return static_cast<unsigned>(_mm_movemask_epi8(_mm_or_si128(control, _mm_or_si128(quote, backslash))));
}
#endif

// The first byte of [begin, end) that is not plain, or `end`. A registry is made of little but plain bytes,
// so they are looked at sixteen at a time where the processor can.
inline const char* findNotPlain(const char* begin, const char* end) {
    const char* from = begin;
#ifdef __SSE2__
    constexpr int step = sizeof(__m128i);
    const auto load = [](const char* at) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(at)); };
    const auto loadHalf = [](const char* at) {
        return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(at));
    };
    for (; end - from >= step; from += step) {
        if (const unsigned found = notPlainMask(load(from)); found != 0) {
            return from + std::countr_zero(found);
        }
    }
    // The rest at once: some bytes are looked at twice.
    if (end - begin >= step) {
        from = notPlainMask(load(end - step)) == 0 ? end : from;
    } else if (end - begin >= step / 2) {
        from = notPlainMask(_mm_unpacklo_epi64(loadHalf(begin), loadHalf(end - step / 2))) == 0 ? end : from;
    }
#endif
    while (from != end && isPlain(*from)) {
        ++from;
    }
    return from;
}

} // namespace quelm
