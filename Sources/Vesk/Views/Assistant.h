// The assistant in the window: the conversation of the open vault, its panel, and the sheets where what it
// proposes is reviewed.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Vesk/AI/BrainActions.h"
#include "Vesk/AI/ProviderSettings.h"
#include "Vesk/AI/TitleProposals.h"
#include "Vesk/Views/AssistantPane.h"
#include "Vesk/Views/AssistantTitleCard.h"
#include "Vesk/Views/Desktop.h"
#include "Vesk/Views/Toolkit.h"
#include "Vesk/Workspace.h"

namespace vesk::views {

/// The window around the assistant.
struct AssistantHost {
    std::function<GtkWindow*()> window;
    std::function<std::optional<EditorSelection>()> selection;  ///< of the editor, if it isn't empty
    std::function<void()> openPanel;
    std::function<void(const std::string& path)> showNote;
    std::function<void(TextRange)> goTo;  ///< in the note that is shown
    std::function<void(const FilePath&)> openFile;
    std::function<void(const std::string& address)> openAddress;
    std::function<void(const std::string& reason)> tell;   ///< why something wasn't done
    std::function<void()> readyChanged;                    ///< whether a model can be asked
    std::function<void(const std::string& words)> inform;  ///< what was done, or needn't be
};

/// Main thread. Belongs to one window.
class Assistant final : private BrainSurroundings {
public:
    Assistant(const DesktopSeams& seams, Workspace& workspace, EditorBridge& bridge, AssistantHost host);
    ~Assistant() override;
    Assistant(const Assistant&) = delete;
    Assistant& operator=(const Assistant&) = delete;

    AssistantPane& pane() { return pane_; }
    AssistantTitleCard& titleCard() { return titleCard_; }
    const std::shared_ptr<ProviderSettings>& settings() { return settings_; }

    void ask();
    void run(QuickAction action);
    void fileNote();
    bool canAsk() const { return brain_->canAsk(); }
    /// Files what waits, or opens the settings where no model can be asked.
    void organise();
    void stop();
    void newConversation();
    void openSettings();
    /// What waits for review; says so where nothing does.
    void review();

private:
    // BrainSurroundings
    std::shared_ptr<VaultSession> session() override { return workspace_.session; }
    std::optional<Note> selectedNote() override { return workspace_.selectedNote(); }
    std::optional<std::string> liveText(const std::string& path) override;
    std::optional<EditorSelection> selection() override { return host_.selection(); }
    std::vector<std::string> noteDestinations() override { return workspace_.tree->noteDestinations(); }
    void openPanel() override { host_.openPanel(); }

    BrainServices services();
    AssistantPaneActions paneActions();
    void connect();
    void sessionChanged();
    void surfaceChanged();
    void reviewEdit();
    void reviewPlan();
    /// Opens the sheet by itself where that takes nothing from under the person's hands.
    void proposed();
    void cite(const CitedNote& note);
    void placePassage();
    void follow(const AnswerLink& link);
    void left(const std::string& path);

    struct Passage {
        std::string path, text;
    };
    const DesktopSeams& seams_;
    Workspace& workspace_;
    EditorBridge& bridge_;
    AssistantHost host_;
    std::shared_ptr<ProviderSettings> settings_;
    std::shared_ptr<BrainSession> brain_;
    TitleProposals titles_;
    AssistantPane pane_;
    AssistantTitleCard titleCard_;
    std::vector<Subscription> subscriptions_, sessionSubscriptions_, surfaceSubscriptions_;
    std::optional<Passage> passage_;  ///< to be shown once its note is there
    std::optional<std::string> shownNote_;
    sigc::connection proposedTimer_, passageTimer_;
    std::shared_ptr<int> life_ = std::make_shared<int>();
};

}  // namespace vesk::views
