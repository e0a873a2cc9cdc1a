// Library-internal: the threads that sv_set_threads adds to the frame cycle.
//
// Work is cut into parts that write disjoint bytes, so the result never
// depends on how many threads ran or in which order the parts finished.
#ifndef WORKERS_H
#define WORKERS_H

namespace svc {

// Threads in use, the caller's included; 1 until SetWorkerThreads.
int WorkerThreads();

// n >= 1; starts or stops helper threads. Not while RunParts runs.
void SetWorkerThreads(int n);

// Calls fn(ctx, part) once for every part in [0, parts) and returns when
// all are done; the caller takes parts too. A second caller arriving while
// the threads are busy runs its parts itself.
void RunParts(int parts, void (*fn)(void* ctx, int part), void* ctx);

}  // namespace svc

#endif
