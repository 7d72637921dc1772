#include "platform/task/BreakThread.h"

#include <utility>

namespace IL {
namespace {

class FunctionEntry final : public CallbackEntry {
public:
    explicit FunctionEntry(std::function<void()> function) : m_function(std::move(function)) {}
    void Dispatch() override {
        if (m_function) m_function();
    }

private:
    std::function<void()> m_function;
};

}  // namespace

void BreakThread(std::function<void()> const& function, NotifyTargetTaskIF* task) {
    BreakThread(std::function<void()>(function), task);
}

void BreakThread(std::function<void()>&& function, NotifyTargetTaskIF* task) {
    if (task == nullptr) return;
    task->PostCallbackEntry(std::make_shared<FunctionEntry>(std::move(function)));
}

}  // namespace IL
