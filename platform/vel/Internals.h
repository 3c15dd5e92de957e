#pragma once

// Vel::Internals<T>: the one friend a machine (or reactor) names so that tests and benchmarks can
// read what it keeps to itself, and provoke its errors, without the machine making any of it
// public. Vel only declares it; a test specialises it for T with just what it needs.

namespace Vel {

template <class T>
struct Internals;

}  // namespace Vel
