#include "generate/parallel_jobs.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

namespace integrity_check_tool::generate {

unsigned DefaultThreadCount() {
    return std::max(1u, std::thread::hardware_concurrency());
}

void RunJobs(std::size_t count, unsigned threads,
             const std::function<void(unsigned worker, std::size_t index)>& job,
             const std::function<void()>& finished) {
    const auto wanted = static_cast<unsigned>(std::min<std::size_t>(threads, count));
    std::atomic<std::size_t> next{0};
    std::mutex mutex;
    std::condition_variable changed;
    std::size_t done = 0;
    const auto work = [&](unsigned worker) {
        for (;;) {
            const std::size_t index = next.fetch_add(1);
            if (index >= count) {
                return;
            }
            job(worker, index);
            {
                const std::lock_guard<std::mutex> lock(mutex);
                ++done;
            }
            changed.notify_one();
        }
    };

    std::vector<std::thread> workers;
    if (wanted > 1) {
        workers.reserve(wanted);
        try {
            for (unsigned worker = 0; worker < wanted; ++worker) {
                workers.emplace_back(work, worker);
            }
        } catch (const std::system_error&) {
            // Fewer threads than asked: those that started share the jobs.
        }
    }
    if (workers.empty()) {
        for (std::size_t index = 0; index < count; ++index) {
            job(0, index);
            finished();
        }
        return;
    }
    const auto joinAll = [&workers] {
        for (auto& worker : workers) {
            worker.join();
        }
    };
    try {
        std::size_t reported = 0;
        while (reported < count) {
            std::size_t now = 0;
            {
                std::unique_lock<std::mutex> lock(mutex);
                changed.wait(lock, [&] { return done > reported; });
                now = done;
            }
            for (; reported < now; ++reported) {
                finished();
            }
        }
    } catch (...) {
        // No job is started after this; those running end first.
        next.store(count);
        joinAll();
        throw;
    }
    joinAll();
}

}  // namespace integrity_check_tool::generate
