// Why the search index can't be opened or changed, in the words the user reads.
#pragma once

#include <string>
#include <utility>
#include <variant>

#include "VeskCore/Support/Error.h"

namespace vesk {

class IndexError : public Error {
public:
    struct CannotOpen {
        std::string path, detail;
    };
    struct Sql {
        std::string statement, detail;
    };
    explicit IndexError(std::variant<CannotOpen, Sql> failure, int resultCode = 0)
        : value(std::move(failure)), code(resultCode) {}
    std::string description() const override;

    std::variant<CannotOpen, Sql> value;
    int code = 0;  ///< SQLite's primary result code; 0 where SQLite was not asked
};

}  // namespace vesk
