#include "VeskCore/Vault/SyncTrigger.h"

namespace vesk {

namespace {

struct Traits {
    std::string_view rawValue;
    int strength;
    AskClass askClass;
    bool runsOutOfFront, isPush;
    DownloadAsk downloads, documentDownloads;
};

Traits traits(SyncTrigger trigger) {
    using enum DownloadAsk;
    switch (trigger) {
        case SyncTrigger::foreground:
            return {"foreground", 4, AskClass::automatic, false, false, everythingOwed, staleOnly};
        case SyncTrigger::adopt:
            return {"adopt", 3, AskClass::automatic, true, false, everythingOwed, staleOnly};
        case SyncTrigger::pull:
            return {"pull", 5, AskClass::user, true, false, everythingOwed, everythingOwed};
        case SyncTrigger::poll:
            return {"poll", 1, AskClass::automatic, false, false, staleOnly, staleOnly};
        case SyncTrigger::presenter:
            return {"presenter", 2, AskClass::automatic, false, true, staleOnly, staleOnly};
        case SyncTrigger::metadata:
            return {"metadata", 2, AskClass::automatic, false, true, staleOnly, staleOnly};
    }
    return {};
}

}  // namespace

std::string_view rawValue(SyncTrigger trigger) {
    return traits(trigger).rawValue;
}
int strength(SyncTrigger trigger) {
    return traits(trigger).strength;
}
AskClass askClass(SyncTrigger trigger) {
    return traits(trigger).askClass;
}
bool runsOutOfFront(SyncTrigger trigger) {
    return traits(trigger).runsOutOfFront;
}
bool isPush(SyncTrigger trigger) {
    return traits(trigger).isPush;
}
DownloadAsk downloads(SyncTrigger trigger) {
    return traits(trigger).downloads;
}
DownloadAsk documentDownloads(SyncTrigger trigger) {
    return traits(trigger).documentDownloads;
}

}  // namespace vesk
