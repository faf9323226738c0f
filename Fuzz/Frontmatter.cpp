// Notes with any block: read, written, changed and read again.
#include <cstdint>

#include "VeskCore/Markdown/FrontmatterDoc.h"
#include "VeskCore/Support/Ensure.h"
#include "VeskCore/Support/Text.h"

using namespace vesk;

namespace {

void checkScalar(const YAMLValue& value) {
    if (const auto* list = std::get_if<YAMLValue::List>(&value.value)) {
        for (const YAMLValue& item : list->items) checkScalar(item);
        return;
    }
    const bool date = std::holds_alternative<YAMLValue::Date>(value.value);
    const bool text = std::holds_alternative<YAMLValue::String>(value.value);
    const YAMLValue again = YAMLScalar::parse(YAMLScalar::emit(value));
    if (date || text || std::holds_alternative<YAMLValue::Number>(value.value))
        VESK_ENSURE(date ? again.stringValue() == value.stringValue() : again == value);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = decodedText(std::string(reinterpret_cast<const char*>(data), size));
    const FrontmatterDoc doc(text);
    const std::string written = doc.serialized();
    if (!doc.hasFrontmatter()) VESK_ENSURE(written == text);
    if (!doc.slots().empty()) VESK_ENSURE(FrontmatterDoc(written).serialized() == written);
    for (const auto& [key, value] : doc.properties()) checkScalar(value);

    FrontmatterDoc changed = doc;
    const YAMLValue value = YAMLValue::list({YAMLValue::string(text), YAMLValue::string(text.substr(0, 7))});
    changed.set("k", value);
    VESK_ENSURE(changed.body() == doc.body());
    const FrontmatterDoc again(changed.serialized());
    // A body that had no block keeps mixed line ends until it is read with one.
    if (doc.hasFrontmatter()) VESK_ENSURE(again.serialized() == changed.serialized());
    VESK_ENSURE(FrontmatterDoc(again.serialized()).serialized() == again.serialized());
    if (doc.slots().empty()) VESK_ENSURE(again["k"] == value);
    changed.remove("k");
    VESK_ENSURE(!changed["k"]);
    return 0;
}
