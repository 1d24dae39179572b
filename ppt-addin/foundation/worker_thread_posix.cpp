// Linux side of the worker thread: std::thread with a flag it raises last.
#include <atomic>
#include <thread>

#include "foundation/worker_thread.h"

namespace qb::platform {

struct WorkerThread::State {
    std::thread thread;
    std::shared_ptr<std::atomic<bool>> done;
};

WorkerThread::WorkerThread() : state_(std::make_unique<State>()) {}

WorkerThread::~WorkerThread() {
    Release();
}

bool WorkerThread::Start(std::function<void()> body) {
    if (state_->thread.joinable()) return false;
    auto done = std::make_shared<std::atomic<bool>>(false);
    try {
        state_->thread = std::thread([body = std::move(body), done] {
            body();
            done->store(true, std::memory_order_release);
        });
    } catch (...) {
        return false;
    }
    state_->done = done;
    return true;
}

bool WorkerThread::Started() const {
    return state_->done != nullptr;
}

bool WorkerThread::Finished() const {
    return !state_->done || state_->done->load(std::memory_order_acquire);
}

void WorkerThread::Join() {
    if (state_->thread.joinable()) state_->thread.join();
}

void WorkerThread::Release() {
    if (!state_->thread.joinable()) return;
    if (Finished()) {
        state_->thread.join();
    } else {
        state_->thread.detach();
    }
}

}  // namespace qb::platform
