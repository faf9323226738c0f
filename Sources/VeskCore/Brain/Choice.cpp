#include "VeskCore/Brain/Choice.h"

#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/Text.h"

namespace vesk {

std::string ChoiceError::description() const {
    return match(
        value, [](const Declined& declined) { return declined.words; },
        [](const Unparseable& unparseable) {
            return "The model's answer didn't name a folder for " + join(unparseable.slots, ", ");
        },
        [](const TooLong&) { return std::string("The question was too long for the model."); },
        [](const Busy&) { return std::string("The model is busy. Try again in a moment."); });
}

}  // namespace vesk
