#include "Support/ScriptedFileEvents.h"

#include <atomic>
#include <utility>

namespace vesk::test {

class ScriptedFileEvents::Stream final : public FileEventStream {
public:
    Stream(ScriptedFileEvents& source, SerialQueue& queue, std::function<void(std::vector<RawEvent>)> deliver)
        : source_(source), queue_(queue), deliver_(std::move(deliver)) {}
    ~Stream() override { stop(); }

    bool start() override {
        if (source_.refusesToStart) return false;
        *isRunning_ = true;
        ++source_.running;
        source_.current_ = this;
        return true;
    }
    void stop() override {
        if (!isRunning_->exchange(false)) return;
        --source_.running;
        if (source_.current_ == this) source_.current_ = nullptr;
    }
    void send(std::vector<RawEvent> events) {
        queue_.post([isRunning = isRunning_, deliver = deliver_, events = std::move(events)] {
            if (*isRunning) deliver(events);
        });
    }

private:
    ScriptedFileEvents& source_;
    SerialQueue& queue_;
    std::function<void(std::vector<RawEvent>)> deliver_;
    std::shared_ptr<std::atomic<bool>> isRunning_ = std::make_shared<std::atomic<bool>>(false);
};

void ScriptedFileEvents::send(std::vector<RawEvent> events) {
    if (current_) current_->send(std::move(events));
}

std::unique_ptr<FileEventStream> ScriptedFileEvents::stream(
    const FilePath&, std::uint64_t sinceEventID, SerialQueue& queue,
    std::function<void(std::vector<RawEvent>)> deliver) {
    since.push_back(sinceEventID);
    if (makesNoStream) return nullptr;
    return std::make_unique<Stream>(*this, queue, std::move(deliver));
}

}  // namespace vesk::test
