#pragma once

#include <cstddef>
#include <functional>

namespace integrity_check_tool::generate {

// The number of threads that hashing uses when none is given: one per core
// the system reports (at least one).
unsigned DefaultThreadCount();

// Runs `job(worker, index)` once for every index below `count` on up to
// `threads` threads of its own, `worker` (below `threads`) naming the thread
// so that each keeps its own state. The calling thread waits and calls
// `finished()` once per finished job, in its own time, so that what it does
// (drawing progress) needs no lock. With one thread, or when no thread can
// be started, every job runs on the calling thread in order. Jobs must not
// throw; they keep their own failures.
void RunJobs(std::size_t count, unsigned threads,
             const std::function<void(unsigned worker, std::size_t index)>& job,
             const std::function<void()>& finished);

}  // namespace integrity_check_tool::generate
