#pragma once

#include <uv.h>

#include <memory>
#include <system_error>

namespace pimbsr::agent {

struct CloseUvHandle {
  template <class Handle>
  void operator()(Handle* handle) const {
    auto free = [](uv_handle_t* closed) { delete reinterpret_cast<Handle*>(closed); };
    uv_close(reinterpret_cast<uv_handle_t*>(handle), free);
  }
};

/// Owns a handle of libuv. It is closed with this object, which its own callback may destroy; its memory is
/// freed in a later turn of the loop, so the loop must be run until idle before it is closed itself.
template <class Handle>
using UvHandle = std::unique_ptr<Handle, CloseUvHandle>;

/// Each throws std::system_error if the loop doesn't accept it. `data` is that of the handle; the descriptor
/// isn't owned, and may be closed once its handle is.
inline UvHandle<uv_poll_t> makePoll(uv_loop_t* loop, int fd, void* data) {
  auto poll = std::make_unique<uv_poll_t>();
  int result = uv_poll_init(loop, poll.get(), fd);
  if (result < 0) throw std::system_error(-result, std::generic_category(), "polling");
  poll->data = data;
  return UvHandle<uv_poll_t>(poll.release());
}

inline UvHandle<uv_timer_t> makeTimer(uv_loop_t* loop, void* data) {
  auto timer = std::make_unique<uv_timer_t>();
  uv_timer_init(loop, timer.get());  // always succeeds
  timer->data = data;
  return UvHandle<uv_timer_t>(timer.release());
}

inline UvHandle<uv_idle_t> makeIdle(uv_loop_t* loop, void* data) {
  auto idle = std::make_unique<uv_idle_t>();
  uv_idle_init(loop, idle.get());  // always succeeds
  idle->data = data;
  return UvHandle<uv_idle_t>(idle.release());
}

}  // namespace pimbsr::agent
