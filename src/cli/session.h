#pragma once

#include <memory>

#include "common/thread_pool_executor.h"
#include "model/project.h"

namespace cli {

// The executor and media services of one command run. The command's thread owns the
// executor and drains it, so asynchronous work always finishes before the next step.
class Session {
  public:
    // Whether clips get their filmstrips, peaks and waveforms. Only a command that shows
    // them needs them; any other would wait for decoding whose result nothing reads.
    enum class Pictures { skip = 1, make };

    explicit Session(Pictures pictures = Pictures::skip);
    model::ProjectContext context() { return {&executor_, media_}; }
    void drain() { executor_.drain(); }
    common::Executor& executor() { return executor_; }

  private:
    std::shared_ptr<model::MediaServices> media_;
    common::ThreadPoolExecutor executor_;  // declared last: its workers stop first
};

}  // namespace cli
