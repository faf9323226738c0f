// A sync service between this device's vault and other people's devices, as such services are: it delivers
// late, out of order and twice, leaves placeholders and older copies until the bytes come, and makes a
// conflict file where both sides changed a note. It never overwrites a file that it finds changed.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "Simulation/MemoryFiles.h"
#include "Simulation/Oracle.h"
#include "Simulation/Texts.h"

namespace vesk::simulation {

class SyncService {
public:
    struct Manner {
        int devices = 1;
        bool leavesPlaceholders = false;   ///< and marks older copies
        bool renamesTheLocalSide = false;  ///< in a conflict; else the other side gets the conflict file
    };
    enum class Status { current, older, downloading };

    SyncService(MemoryFiles& files, Oracle& oracle, Texts& texts, std::string root, Manner manner);

    /// What stands in the vault is what everybody has.
    void begin();
    /// Called with each path that the service is about to change.
    std::function<void(const std::string&)> touches;

    // The other devices, each on the state of the vault that it saw last. `pick` chooses a note.
    void look(int device);
    void edit(int device, int pick, int style);
    void create(int device, int pick);
    void move(int device, int pick, int place);
    void trash(int device, int pick);
    void restore(int device, int pick);
    void remove(int device, int pick);

    // On this device
    void upload();
    /// Delivers some of what waits.
    void tick(std::mt19937_64& random);
    /// Everything that waits, in order; true if anything was done.
    bool catchUp();
    void deliverAgain(int pick, bool inPlace);
    void evict(int pick);
    void request(const std::string& path) { requested_.insert(path); }
    /// What only the service has: the texts of placeholders.
    std::vector<std::string> textsElsewhere() const;
    bool waitsBelow(const std::string& folder) const;
    Status statusOf(const std::string& path) const;
    /// Why the vault and the service don't agree; none if they do.
    std::optional<std::string> disagreement() const;

    static const std::vector<std::string>& places();

private:
    struct CloudFile {
        std::string text;
        int version = 0;
    };
    using Listing = std::map<std::string, CloudFile>;
    struct Delivery {
        enum class Kind { put, move, remove } kind = Kind::put;
        std::string path, to, text;
        int version = 0;
    };
    struct Waiting {
        CloudFile file;
        bool isPlaceholder = false;
    };

    std::string absolute(const std::string& path) const { return root_ + "/" + path; }
    std::string stubOf(const std::string& path) const;
    std::string freeConflictName(const std::string& path,
                                 const std::function<bool(const std::string&)>& taken);
    std::optional<std::string> chosen(const Listing& replica, int pick, bool inTrash) const;
    void send(int device, Delivery delivery);
    std::map<std::string, const std::string*> localFiles() const;

    void deliver(const Delivery& delivery, std::mt19937_64* random);
    void deliverPut(const std::string& path, const CloudFile& file, std::mt19937_64* random);
    void deliverMove(const Delivery& delivery, std::mt19937_64* random);
    void deliverRemove(const Delivery& delivery);
    void place(const std::string& path, const CloudFile& file, bool inPlace);
    void conflict(const std::string& path, const CloudFile& theirs);
    void materialise(const std::string& path);
    bool isClean(const std::string& path) const;

    MemoryFiles& files_;
    Oracle& oracle_;
    Texts& texts_;
    const std::string root_;
    const Manner manner_;
    Listing cloud_;
    int version_ = 0;
    std::vector<Listing> replicas_;
    // This device
    std::vector<Delivery> inbox_, delivered_;
    Listing known_;                   ///< what the service and the vault agreed on last
    std::map<std::string, int> met_;  ///< the newest version of a path that has been dealt with
    std::map<std::string, Waiting> waiting_;
    std::set<std::string> requested_;
    int conflicts_ = 0;
};

}  // namespace vesk::simulation
