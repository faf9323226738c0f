// How the workspace's own files leave the main thread and come back. Private to them.
#pragma once

#include <memory>
#include <utility>

#include "Vesk/Workspace.h"
#include "VeskCore/Support/Match.h"

namespace vesk {

/// What posts back looks here whether the workspace still is.
struct Workspace::Life {
    Workspace* workspace;
};

template <class Work, class Job>
void Workspace::offMain(Priority priority, Work work, Job job) {
    services_.background.run(priority, [&queue = services_.mainQueue, weak = std::weak_ptr<Life>(life_),
                                        root = vault.get()->root(), work = std::move(work),
                                        job = std::move(job)](const std::stop_token&) mutable {
        using Result = decltype(work());
        std::shared_ptr<Result> result;
        try {
            result = std::make_shared<Result>(work());
        } catch (const std::exception&) {  // what is shown stays as it was
            return;
        }
        queue.post([weak, root, result, job = std::move(job)]() mutable {
            const auto life = weak.lock();
            if (life && life->workspace->isOpen(root)) job(std::move(*result));
        });
    });
}

}  // namespace vesk
