// First-in-first-out queue of requests whose steady traffic allocates nothing. Not thread-safe.
#ifndef QIV_AIO_REQUEST_QUEUE_H
#define QIV_AIO_REQUEST_QUEUE_H

#include <algorithm>
#include <boost/circular_buffer.hpp>
#include <cstddef>
#include <exception>

#include "aio/io_data.h"

namespace qiv::aio {

class RequestQueue {
 public:
  bool IsEmpty() const noexcept { return m_requests.empty(); }
  std::size_t Size() const noexcept { return m_requests.size(); }

  /** The first request, or null when there is none. */
  IO_DATA* Front() const noexcept { return m_requests.empty() ? nullptr : m_requests.front(); }

  /** Makes sure that one more request fits; false when memory is short. */
  bool MakeRoom() noexcept {
    try {
      if (m_requests.full()) m_requests.set_capacity(std::max(kFirstCapacity, 2 * Size()));
    } catch (const std::exception&) {
      return false;
    }
    return true;
  }

  /** Appends a request, for which MakeRoom() has made room. */
  void Append(IO_DATA* request) noexcept { m_requests.push_back(request); }

  void RemoveFront() noexcept { m_requests.pop_front(); }

  void Clear() noexcept { m_requests.clear(); }

 private:
  static constexpr std::size_t kFirstCapacity = 16;

  boost::circular_buffer<IO_DATA*> m_requests;
};

}  // namespace qiv::aio

#endif
