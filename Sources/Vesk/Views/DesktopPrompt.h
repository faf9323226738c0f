// Asks about text that can't be saved, by dialogues of the desktop.
#pragma once

#include "Vesk/Editor/EditorBridge.h"
#include "Vesk/Views/Toolkit.h"

namespace vesk::views {

/// `parent` gives the window that the dialogues belong to, or none.
class DesktopPrompt final : public LeavingPrompt {
public:
    explicit DesktopPrompt(std::function<GtkWindow*()> parent) : parent_(std::move(parent)) {}

    void ask(const LeavingAlert& alert, std::function<void(LeavingChoice)> answer) override;
    void chooseFolder(const std::string& message,
                      std::function<void(std::optional<FilePath>)> answer) override;
    void tell(const std::string& message, const std::string& information) override;
    void reveal(const std::vector<FilePath>& files) override;

private:
    std::function<GtkWindow*()> parent_;
};

/// A folder by the desktop's chooser; `start` may be empty.
void chooseFolder(GtkWindow* parent, const std::string& title, const std::string& accept,
                  const FilePath& start, std::function<void(std::optional<FilePath>)> answer);
/// Shows files in the desktop's file manager.
void revealFiles(const std::vector<FilePath>& files);

/// The harmless answer to a question: it is what Return and Escape mean. The keyboard would begin at whatever
/// button stands on top, which in a dialogue with long buttons is the one that can't be undone.
void beginAt(AdwMessageDialog* dialog, const char* response);

}  // namespace vesk::views
