// Offsets of one text in three units: UTF-8 bytes, UTF-16 units, code points. The one converter between the
// editor's offsets (UTF-16), files (bytes) and a toolkit that counts code points.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace vesk {

/// Built once in linear time for a text that does not change; an ASCII text keeps no table. Offsets inside a
/// code point map to its start, offsets past the end to the end.
class Utf16Map {
public:
    explicit Utf16Map(std::string_view utf8);

    std::size_t utf16FromByte(std::size_t byte) const;
    std::size_t byteFromUtf16(std::size_t unit) const;
    std::size_t codePointFromUtf16(std::size_t unit) const;
    std::size_t utf16FromCodePoint(std::size_t codePoint) const;

    std::size_t utf16Length() const { return utf16Length_; }
    std::size_t byteLength() const { return byteLength_; }

private:
    // One sample for every `stride` bytes; the text is walked from the nearest sample.
    struct Sample {
        std::size_t byte, unit, codePoint;
    };
    const Sample& sampleBefore(std::size_t Sample::*field, std::size_t value) const;
    /// The start of the code point that holds offset `value` of the unit `field`, in all units.
    Sample walk(std::size_t Sample::*field, std::size_t value) const;

    std::string_view text_;  // borrowed: the caller keeps it alive and unchanged
    std::vector<Sample> samples_;
    std::size_t utf16Length_ = 0;
    std::size_t byteLength_ = 0;
    bool ascii_ = false;
};

}  // namespace vesk
