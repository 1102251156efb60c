#pragma once

#include <nanobind/nanobind.h>
#include <nanobind/ndarray.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <span>
#include <utility>
#include <vector>

namespace corvex::bindings {

/// Input: one-dimensional and contiguous; other strides are copied by nanobind.
template <typename T>
using InputArray =
    nanobind::ndarray<const T, nanobind::ndim<1>, nanobind::c_contig, nanobind::device::cpu>;

template <typename T>
using OutputArray = nanobind::ndarray<nanobind::numpy, T>;

template <typename T>
std::span<const T> as_span(const InputArray<T>& array) {
    return {array.data(), array.shape(0)};
}

/// Hands a vector over to numpy without a copy.
template <typename T>
OutputArray<T> to_numpy(std::vector<T> values, std::initializer_list<std::size_t> shape) {
    auto owned = std::make_unique<std::vector<T>>(std::move(values));
    T* data = owned->data();
    nanobind::capsule owner(owned.get(),
                            [](void* held) noexcept { delete static_cast<std::vector<T>*>(held); });
    owned.release();
    return OutputArray<T>(data, shape, owner);
}

template <typename T>
OutputArray<T> to_numpy(std::vector<T> values) {
    const std::size_t size = values.size();
    return to_numpy(std::move(values), {size});
}

} // namespace corvex::bindings
