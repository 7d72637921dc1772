// A product process in miniature, built against an installed libVellmarkClient: it makes
// the client on a task of its own, subscribes to the presets, asks for the sources, and
// exits once the answer is in (or after five seconds without one).
#include <chrono>
#include <condition_variable>
#include <iostream>
#include <mutex>

#include <VellmarkClient/VellmarkClientAPI.h>
#include <VellmarkClient/platform/task/Task.h>

#include "AccountsPanel.h"

int main() {
    IL::Task task("example");
    std::mutex mutex;
    std::condition_variable answered;
    int sources = -1;
    {
        VellmarkClientAPI client(&task);
        client.SubscribePresetsRequest("", [](VellmarkPB::VellmarkPresets const& presets) {
            std::cout << "presets changed: " << presets.presets_size() << " presets\n";
        });
        AccountsPanel panel(client);
        panel.CountSources([&](int count) {
            std::lock_guard<std::mutex> lock(mutex);
            sources = count;
            answered.notify_all();
        });
        std::unique_lock<std::mutex> lock(mutex);
        answered.wait_for(lock, std::chrono::seconds(5), [&] { return sources >= 0; });
    }
    task.Stop();
    if (sources < 0) {
        std::cerr << "example: no answer from the Vellmark service\n";
        return 1;
    }
    std::cout << "the service knows " << sources << " sources\n";
    return 0;
}
