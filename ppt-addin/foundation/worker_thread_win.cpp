// Windows side of the worker thread: CreateThread, default stack, no flags;
// the handle is polled with a time-out of 0.
#include <windows.h>

#include <atomic>

#include "foundation/handle_win.h"
#include "foundation/worker_thread.h"

namespace qb::platform {

struct WorkerThread::State {
    UniqueHandle handle;
    bool started = false;
};

namespace {

DWORD WINAPI ThreadProc(LPVOID parameter) {
    std::unique_ptr<std::function<void()>> body(static_cast<std::function<void()>*>(parameter));
    try {
        (*body)();
    } catch (...) {
        // Nothing may leave a thread: the body reports its own outcome.
    }
    return 0;
}

}  // namespace

WorkerThread::WorkerThread() : state_(std::make_unique<State>()) {}

WorkerThread::~WorkerThread() {
    Release();
}

bool WorkerThread::Start(std::function<void()> body) {
    if (state_->started) return false;
    auto* parameter = new std::function<void()>(std::move(body));
    HANDLE thread = ::CreateThread(nullptr, 0, &ThreadProc, parameter, 0, nullptr);
    if (!thread) {
        delete parameter;
        return false;
    }
    state_->handle.Reset(thread);
    state_->started = true;
    return true;
}

bool WorkerThread::Started() const {
    return state_->started;
}

bool WorkerThread::Finished() const {
    return !state_->handle.IsValid() ||
           ::WaitForSingleObject(state_->handle.Get(), 0) == WAIT_OBJECT_0;
}

void WorkerThread::Join() {
    if (state_->handle.IsValid()) ::WaitForSingleObject(state_->handle.Get(), INFINITE);
}

void WorkerThread::Release() {
    state_->handle.Reset();
}

}  // namespace qb::platform
