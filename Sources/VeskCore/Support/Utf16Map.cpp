#include "VeskCore/Support/Utf16Map.h"

#include <algorithm>

#include "VeskCore/Support/Text.h"

namespace vesk {

namespace {

constexpr std::size_t stride = 128;

constexpr std::size_t unitsOf(char32_t codePoint) {
    return codePoint > 0xFFFF ? 2 : 1;
}

}  // namespace

Utf16Map::Utf16Map(std::string_view utf8) : text_(utf8), byteLength_(utf8.size()) {
    ascii_ = isAscii(utf8);
    if (ascii_) {
        utf16Length_ = byteLength_;
        return;
    }
    samples_.reserve(byteLength_ / stride + 1);
    Sample here{0, 0, 0};
    std::size_t nextSample = 0;
    while (here.byte < byteLength_) {
        if (here.byte >= nextSample) {
            samples_.push_back(here);
            nextSample = here.byte + stride;
        }
        here.unit += unitsOf(nextCodePoint(text_, here.byte));
        ++here.codePoint;
    }
    utf16Length_ = here.unit;
}

const Utf16Map::Sample& Utf16Map::sampleBefore(std::size_t Sample::*field, std::size_t value) const {
    const auto after = std::upper_bound(samples_.begin(), samples_.end(), value,
                                        [field](std::size_t v, const Sample& s) { return v < s.*field; });
    return *std::prev(after);  // the first sample is at 0 in every unit
}

Utf16Map::Sample Utf16Map::walk(std::size_t Sample::*field, std::size_t value) const {
    if (ascii_) {
        value = std::min(value, byteLength_);
        return {value, value, value};
    }
    Sample here = sampleBefore(field, value);
    while (here.byte < byteLength_ && here.*field < value) {
        Sample behind = here;
        behind.unit += unitsOf(nextCodePoint(text_, behind.byte));
        ++behind.codePoint;
        if (behind.*field > value) break;
        here = behind;
    }
    return here;
}

std::size_t Utf16Map::utf16FromByte(std::size_t byte) const {
    return walk(&Sample::byte, byte).unit;
}

std::size_t Utf16Map::byteFromUtf16(std::size_t unit) const {
    return walk(&Sample::unit, unit).byte;
}

std::size_t Utf16Map::codePointFromUtf16(std::size_t unit) const {
    return walk(&Sample::unit, unit).codePoint;
}

std::size_t Utf16Map::utf16FromCodePoint(std::size_t codePoint) const {
    return walk(&Sample::codePoint, codePoint).unit;
}

}  // namespace vesk
