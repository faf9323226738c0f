// Turns a mention into a link, after the person has seen the change. Main thread.
#pragma once

#include <optional>
#include <string>

#include "Vesk/Workspace.h"
#include "VeskCore/Index/LinkQueries.h"
#include "VeskCore/Support/Observable.h"

namespace vesk {

class LinkEditor {
public:
    /// Why the last insertion or undo was not made; none after one that was.
    Observable<std::optional<std::string>> lastError;

    /// Puts the link in if the text there is still the mention. A note that is open is changed in its editor,
    /// any other on the disk, and only as it was read. False, with lastError, where it is left alone.
    bool insert(const PendingLink& pending, Workspace& workspace);
    /// Takes the link out again if it still stands where it was put.
    bool undo(const PendingLink& pending, Workspace& workspace);

private:
    using Change = std::optional<std::string> (PendingLink::*)(std::string_view) const;
    bool rewrite(const PendingLink& pending, Change change, Workspace& workspace);
    bool fail(std::string words);
};

}  // namespace vesk
