// The run's worker thread: one function run to its end on a thread of its
// own. It is never killed; the host's thread polls it without waiting.
#pragma once

#include <functional>
#include <memory>

namespace qb::platform {

class WorkerThread {
  public:
    WorkerThread();
    // A thread still running is let go: it owns what it needs to finish.
    ~WorkerThread();
    WorkerThread(const WorkerThread&) = delete;
    WorkerThread& operator=(const WorkerThread&) = delete;

    // False when the system couldn't create the thread.
    [[nodiscard]] bool Start(std::function<void()> body);
    bool Started() const;
    // True once the body has returned, or when no thread was started. A
    // poll with no wait, as WaitForSingleObject with a time-out of 0.
    bool Finished() const;
    // Waits for the body to return.
    void Join();
    // Lets go of the thread (the handle is closed; the thread runs on).
    void Release();

  private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace qb::platform
