// Why text can't reach or leave a vault file, in the words the user reads.
#pragma once

#include <string>

#include "VeskCore/Platform/FileSystem.h"
#include "VeskCore/Support/Error.h"

namespace vesk {

class VaultWriteError : public Error {
public:
    enum class Kind {
        notMaterialised,
        outsideVault,
        encodingFailed,
        alreadyExists,
        notCurrent,
        readOnlyDocument
    };

    VaultWriteError(Kind what, FilePath file) : kind(what), path(std::move(file)) {}
    std::string description() const override;

    Kind kind;
    FilePath path;  ///< the file concerned
};

}  // namespace vesk
