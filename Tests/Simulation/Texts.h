// The texts of a simulated world: each change leaves a mark that no other text has.
#pragma once

#include <string>

namespace vesk::simulation {

class Texts {
public:
    /// A text made from `text`: a line more, a line replaced, or another reminder, by `style`.
    std::string changed(const std::string& text, int style);
    std::string fresh() { return mark() + "\n"; }
    static std::string withCarriageReturns(const std::string& text);

private:
    std::string mark() { return "<" + std::to_string(next_++) + ">"; }
    int next_ = 1;
};

}  // namespace vesk::simulation
