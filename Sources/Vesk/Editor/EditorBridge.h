// Every editor of the process at once: pending saves flushed, and text that can't be saved confirmed before
// it is left.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "VeskCore/Platform/FileSystem.h"
#include "VeskCore/Support/Executors.h"

namespace vesk {

/// The text view's side of one editor, without the view: debounces what is typed. Main thread.
class EditorCoordinator {
public:
    static constexpr Seconds saveDelay{0.8};

    EditorCoordinator(MainQueue& mainQueue, std::function<void(const std::string&)> onSave);

    /// After every keystroke, with the text as of it.
    void scheduleSave(std::string text);
    /// Saves at once what was typed and not saved yet.
    void flushSave();
    /// What was typed is saved by another way.
    void dropSave();
    bool hasUnsavedEdit() const { return unsaved_.has_value(); }

private:
    MainQueue& mainQueue_;
    std::function<void(const std::string&)> onSave_;
    std::optional<std::string> unsaved_;
    TimerHandle saveWorkItem_;
};

/// Who holds text that could not be saved, and how to try again.
class EditorHandle {
public:
    std::function<std::vector<std::string>()> retryHeld;           ///< names still held after the try
    std::function<std::map<std::string, std::string>()> heldText;  ///< path → text
    std::function<void()> letGo;                                   ///< the person gave the held text up
};

enum class LeavingContext { quitting, openingAnotherVault };

/// The warning shown before text is left behind.
struct LeavingAlert {
    std::string message, information;
    std::string stay, saveElsewhere, leave;  ///< the buttons, in this order; the last is destructive
    bool operator==(const LeavingAlert&) const = default;
};
enum class LeavingChoice { stay, saveElsewhere, leave };

/// How the person is asked; the desktop shows dialogues, a script answers for itself.
class LeavingPrompt {
public:
    virtual ~LeavingPrompt() = default;
    virtual void ask(const LeavingAlert& alert, std::function<void(LeavingChoice)> answer) = 0;
    /// A folder to save to, or none. Prompt "Save Here".
    virtual void chooseFolder(const std::string& message,
                              std::function<void(std::optional<FilePath>)> answer) = 0;
    virtual void tell(const std::string& message, const std::string& information) = 0;
    virtual void reveal(const std::vector<FilePath>& files) = 0;
};

/// One for the process, owned by the application. Main thread.
class EditorBridge {
public:
    explicit EditorBridge(LeavingPrompt& prompt) : prompt_(prompt) {}
    ~EditorBridge();
    EditorBridge(const EditorBridge&) = delete;
    EditorBridge& operator=(const EditorBridge&) = delete;

    void add(EditorCoordinator& coordinator);
    void remove(EditorCoordinator& coordinator);
    void hold(const std::shared_ptr<EditorHandle>& handle);

    void flushAllPendingSaves();
    /// Tries every held text again; the names still held.
    std::vector<std::string> saveEverythingHeld();
    /// Path and text, sorted; one path may come from two editors.
    std::vector<std::pair<std::string, std::string>> everythingHeld() const;
    /// Lets go of all held text, also in the stores of this run: the person chose so.
    void forgetEverythingHeld();
    /// Calls `safe` with true when leaving loses nothing, or nothing that the person didn't choose to lose.
    void confirmLeavingUnsavedText(LeavingContext context, std::function<void(bool safe)> answer);
    void saveHeldTextElsewhere(std::function<void(bool saved)> done);

    static LeavingAlert leavingAlert(LeavingContext context, std::vector<std::string> names);

private:
    LeavingPrompt& prompt_;
    std::vector<EditorCoordinator*> coordinators_;
    std::vector<std::shared_ptr<EditorHandle>> handles_;
};

}  // namespace vesk
