// The start and stop sequence over a list of services, shared with its tests.
#ifndef QIV_CORE_LIBRARY_H
#define QIV_CORE_LIBRARY_H

namespace qiv::core {

/** A sub-service that the first start brings up and the last stop takes down. */
struct Service {
  int (*start)();  // null: never started, so never stopped either
  int (*stop)();
  bool started;
};

/** Starts the services in order. After a failure those already started are stopped; false. */
bool StartServices(Service* first, Service* last) noexcept;

/** Stops the started ones of the services, in the same order in which they start. */
void StopServices(Service* first, Service* last) noexcept;

/** Starts taken and not given back; wraps below 0. */
unsigned int StartCount() noexcept;

}  // namespace qiv::core

#endif
