#pragma once

#include "corvex/pyglue/objects.hpp"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace corvex::report {

/// A one-dimensional buffer of signed integers, held for the length of a call. Strided views and
/// read-only arrays are fine; nothing is copied.
template <typename Integer>
    requires std::is_signed_v<Integer>
class PositionBuffer {
  public:
    /// @throws nanobind::python_error ValueError on another element type or dimension, TypeError on
    ///         an object that offers no buffer.
    explicit PositionBuffer(nanobind::handle array);
    ~PositionBuffer() { PyBuffer_Release(&view_); }
    PositionBuffer(const PositionBuffer&) = delete;
    PositionBuffer& operator=(const PositionBuffer&) = delete;

    [[nodiscard]] Py_ssize_t size() const { return view_.shape[0]; }

    Integer operator[](Py_ssize_t i) const {
        Integer value;
        std::memcpy(&value, static_cast<const std::byte*>(view_.buf) + i * view_.strides[0],
                    sizeof value);
        return value;
    }

  private:
    Py_buffer view_{};
};

extern template class PositionBuffer<std::int64_t>;
extern template class PositionBuffer<std::int32_t>;

} // namespace corvex::report
