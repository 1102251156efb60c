#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace corvex::engine::inline v1 {

/// A few of the assets: listed in the order in which they came, and looked up at once.
class AssetSet {
  public:
    explicit AssetSet(std::size_t assets) : inside_(assets, 0) {}

    void add(std::size_t asset) {
        if (!has(asset)) {
            inside_[asset] = 1;
            list_.push_back(static_cast<std::uint32_t>(asset));
        }
    }
    void remove(std::size_t asset) {
        if (has(asset)) {
            inside_[asset] = 0;
            std::erase(list_, static_cast<std::uint32_t>(asset));
        }
    }
    void clear() {
        for (const std::uint32_t asset : list_) {
            inside_[asset] = 0;
        }
        list_.clear();
    }

    [[nodiscard]] bool empty() const { return list_.empty(); }
    [[nodiscard]] bool has(std::size_t asset) const { return inside_[asset] != 0; }
    [[nodiscard]] const std::vector<std::uint32_t>& list() const { return list_; }

  private:
    std::vector<std::uint32_t> list_;
    std::vector<std::uint8_t> inside_;
};

} // namespace corvex::engine::inline v1
