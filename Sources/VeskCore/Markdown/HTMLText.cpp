#include "VeskCore/Markdown/HTMLText.h"

#include <unicode/ucnv.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <limits>
#include <memory>

#include "VeskCore/Markdown/PageTextScanner.h"
#include "VeskCore/Support/Characters.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

namespace vesk::HTMLText {

namespace {

constexpr std::size_t maxScannedBytes = 0x1000000;
constexpr std::size_t sniffedBytes = 4096;

// The labels that a page may give its encoding (WHATWG Encoding Standard), sorted by the encoding.
// `converter` is ICU's name for it. A page that was read byte by byte to find its label is not in UTF-16,
// whatever it says.
struct Encoding {
    std::string_view converter, labels;
};

constexpr std::string_view utf8Name = "utf-8", windows1252Name = "windows-1252";

constexpr Encoding encodings[] = {
    {utf8Name,
     "unicode-1-1-utf-8 unicode11utf8 unicode20utf8 utf-8 utf8 x-unicode20utf8 utf-16 utf-16be utf-16le "
     "ucs-2 "
     "csunicode iso-10646-ucs-2 unicode unicodefeff unicodefffe"},
    {windows1252Name,
     "ansi_x3 ascii cp1252 cp819 csisolatin1 ibm819 iso-8859-1 iso-ir-100 iso8859-1 iso88591 iso_8859-1 l1 "
     "latin1 "
     "us-ascii windows-1252 x-cp1252 x-user-defined"},
    {"ibm-866", "866 cp866 csibm866 ibm866"},
    {"iso-8859-2", "csisolatin2 iso-8859-2 iso-ir-101 iso8859-2 iso88592 iso_8859-2 l2 latin2"},
    {"iso-8859-3", "csisolatin3 iso-8859-3 iso-ir-109 iso8859-3 iso88593 iso_8859-3 l3 latin3"},
    {"iso-8859-4", "csisolatin4 iso-8859-4 iso-ir-110 iso8859-4 iso88594 iso_8859-4 l4 latin4"},
    {"iso-8859-5", "csisolatincyrillic cyrillic iso-8859-5 iso-ir-144 iso8859-5 iso88595 iso_8859-5"},
    {"iso-8859-6",
     "arabic asmo-708 csiso88596e csiso88596i csisolatinarabic ecma-114 iso-8859-6 iso-8859-6-e iso-8859-6-i "
     "iso-ir-127 iso8859-6 iso88596 iso_8859-6"},
    {"iso-8859-7",
     "csisolatingreek ecma-118 elot_928 greek greek8 iso-8859-7 iso-ir-126 iso8859-7 iso88597 iso_8859-7 "
     "sun_eu_greek"},
    {"iso-8859-8",
     "csiso88598e csisolatinhebrew hebrew iso-8859-8 iso-8859-8-e iso-ir-138 iso8859-8 iso88598 iso_8859-8 "
     "visual "
     "csiso88598i iso-8859-8-i logical"},
    {"iso-8859-10", "csisolatin6 iso-8859-10 iso-ir-157 iso8859-10 iso885910 l6 latin6"},
    {"iso-8859-13", "iso-8859-13 iso8859-13 iso885913"},
    {"iso-8859-14", "iso-8859-14 iso8859-14 iso885914"},
    {"iso-8859-15", "csisolatin9 iso-8859-15 iso8859-15 iso885915 iso_8859-15 l9"},
    {"iso-8859-16", "iso-8859-16"},
    {"koi8-r", "cskoi8r koi koi8 koi8-r koi8_r"},
    {"koi8-u", "koi8-ru koi8-u"},
    {"macintosh", "csmacintosh mac macintosh x-mac-roman"},
    {"x-mac-cyrillic", "x-mac-cyrillic x-mac-ukrainian"},
    {"windows-874", "dos-874 iso-8859-11 iso8859-11 iso885911 tis-620 windows-874"},
    {"windows-1250", "cp1250 windows-1250 x-cp1250"},
    {"windows-1251", "cp1251 windows-1251 x-cp1251"},
    {"windows-1253", "cp1253 windows-1253 x-cp1253"},
    {"windows-1254",
     "cp1254 csisolatin5 iso-8859-9 iso-ir-148 iso8859-9 iso88599 iso_8859-9 l5 latin5 windows-1254 "
     "x-cp1254"},
    {"windows-1255", "cp1255 windows-1255 x-cp1255"},
    {"windows-1256", "cp1256 windows-1256 x-cp1256"},
    {"windows-1257", "cp1257 windows-1257 x-cp1257"},
    {"windows-1258", "cp1258 windows-1258 x-cp1258"},
    {"gb18030", "chinese csgb2312 csiso58gb231280 gb2312 gb_2312 gb_2312-80 gbk iso-ir-58 x-gbk gb18030"},
    {"big5-hkscs", "big5 big5-hkscs cn-big5 csbig5 x-x-big5"},
    {"euc-jp", "cseucpkdfmtjapanese euc-jp x-euc-jp"},
    {"iso-2022-jp", "csiso2022jp iso-2022-jp"},
    {"windows-31j", "csshiftjis ms932 ms_kanji shift-jis shift_jis sjis windows-31j x-sjis"},
    {"windows-949",
     "cseuckr csksc56011987 euc-kr iso-ir-149 korean ks_c_5601-1987 ks_c_5601-1989 ksc5601 ksc_5601 "
     "windows-949"},
};

std::string_view encodingFor(std::string_view label) {
    for (const Encoding& encoding : encodings) {
        const auto labels = splitWords(encoding.labels, " ");
        if (std::find(labels.begin(), labels.end(), label) != labels.end()) return encoding.converter;
    }
    return windows1252Name;
}

bool isLabelCharacter(char c) {
    return isAsciiAlphanumeric(c) || c == '-' || c == '_';
}

// The name behind the first "charset" that has one, lower-cased; empty if there is none.
std::string sniffCharset(std::string_view data) {
    const std::string head = asciiLowercased(data.substr(0, sniffedBytes));
    constexpr std::string_view word = "charset";
    for (std::size_t at = 0; (at = head.find(word, at)) != std::string::npos;) {
        at += word.size();
        const std::size_t start = std::min(head.find_first_not_of(" \t\r\n\f=\"'", at), head.size());
        std::size_t end = start;
        while (end < head.size() && isLabelCharacter(head[end])) ++end;
        if (start > at && end > start) return head.substr(start, end - start);
    }
    return {};
}

std::optional<std::string> converted(std::string_view data, std::string_view converter) {
    if (data.size() > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max() / 4))
        return std::nullopt;
    UErrorCode error = U_ZERO_ERROR;
    const std::unique_ptr<UConverter, decltype(&ucnv_close)> open(
        ucnv_open(std::string(converter).c_str(), &error), &ucnv_close);
    if (U_FAILURE(error)) return std::nullopt;
    const icu::UnicodeString text(data.data(), static_cast<std::int32_t>(data.size()), open.get(), error);
    if (U_FAILURE(error) || text.isBogus()) return std::nullopt;
    std::string result;
    text.toUTF8String(result);
    return result;
}

// Behind a byte order mark. An odd last byte becomes U+FFFD.
std::string fromUTF16(std::string_view bytes, bool bigEndian) {
    std::u16string units;
    units.reserve(bytes.size() / 2 + 1);
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
        const auto first = static_cast<unsigned char>(bytes[i]),
                   second = static_cast<unsigned char>(bytes[i + 1]);
        units += static_cast<char16_t>(bigEndian ? first << 8 | second : second << 8 | first);
    }
    if (bytes.size() % 2 == 1) units += u'\uFFFD';
    return utf8(units);
}

}  // namespace

std::string decode(std::string_view data) {
    if (data.starts_with("\xEF\xBB\xBF")) return repairedUtf8(data.substr(3));
    if (data.starts_with("\xFE\xFF")) return fromUTF16(data.substr(2), /*bigEndian=*/true);
    if (data.starts_with("\xFF\xFE")) return fromUTF16(data.substr(2), /*bigEndian=*/false);
    if (isValidUtf8(data)) return std::string(data);
    const std::string_view encoding = encodingFor(sniffCharset(data));
    if (encoding == utf8Name) return repairedUtf8(data);
    if (encoding != windows1252Name) {
        if (auto text = converted(data, encoding)) return *std::move(text);
    }
    return windows1252ToUtf8(data);
}

std::string_view withoutPartialUTF8(std::string_view data) {
    // A lead byte among the last three whose sequence would reach past the end.
    for (std::size_t back = 1; back <= std::min<std::size_t>(3, data.size()); ++back) {
        const auto byte = static_cast<unsigned char>(data[data.size() - back]);
        if ((byte & 0xC0) == 0x80) continue;
        const std::size_t length = byte >= 0xF0 && byte <= 0xF4   ? 4
                                   : byte >= 0xE0 && byte <= 0xEF ? 3
                                   : byte >= 0xC2 && byte <= 0xDF ? 2
                                                                  : 1;
        return length > back ? data.substr(0, data.size() - back) : data;
    }
    return data;
}

HTMLExtract extract(std::string_view text, bool scriptingEnabled) {
    if (text.size() > maxScannedBytes) text = withoutPartialUTF8(text.substr(0, maxScannedBytes));
    if (!isValidUtf8(text)) return PageTextScanner(repairedUtf8(text), scriptingEnabled).extract();
    return PageTextScanner(text, scriptingEnabled).extract();
}

std::string_view capped(std::string_view text, std::size_t maxBytes) {
    if (text.size() <= maxBytes) return text;
    const std::size_t lineFeed = text.rfind('\n', maxBytes);
    if (lineFeed == std::string_view::npos) return characterPrefixFitting(text, maxBytes);
    text = text.substr(0, lineFeed);
    while (text.ends_with('\n')) text.remove_suffix(1);
    return text;
}

std::optional<std::string> title(std::string_view prefix) {
    const std::string_view head = withoutPartialUTF8(prefix.substr(0, titlePrefixBytes));
    return extract(decode(head), /*scriptingEnabled=*/true).title;
}

}  // namespace vesk::HTMLText
