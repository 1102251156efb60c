#include "corvex/engine/drawdown/curve.hpp"
#include "corvex/engine/drawdown/episodes.hpp"

#include <nanobind/nanobind.h>

#include "arrays.hpp"

namespace nb = nanobind;
using namespace nb::literals;

namespace corvex::bindings {

namespace {

OutputArray<double> drawdown_curve(const InputArray<double>& values) {
    std::vector<double> out(values.shape(0));
    {
        const nb::gil_scoped_release released;
        engine::drawdown_curve(as_span(values), out);
    }
    return to_numpy(std::move(out));
}

/// Rows as an (episodes, 4) array and depths: columns peak, start, valley, end (-1 while open).
nb::tuple as_arrays(const std::vector<engine::Episode>& episodes) {
    std::vector<std::int64_t> rows;
    std::vector<double> depths;
    rows.reserve(episodes.size() * 4);
    depths.reserve(episodes.size());
    for (const engine::Episode& episode : episodes) {
        for (const std::size_t row : {episode.peak, episode.start, episode.valley}) {
            rows.push_back(static_cast<std::int64_t>(row));
        }
        rows.push_back(episode.recovered ? static_cast<std::int64_t>(episode.end) : -1);
        depths.push_back(episode.depth);
    }
    return nb::make_tuple(to_numpy(std::move(rows), {episodes.size(), 4}),
                          to_numpy(std::move(depths)));
}

nb::tuple drawdown_episodes(const InputArray<double>& values) {
    std::vector<engine::Episode> episodes;
    {
        const nb::gil_scoped_release released;
        episodes = engine::drawdown_episodes(as_span(values));
    }
    return as_arrays(episodes);
}

nb::tuple largest_drawdowns(const InputArray<double>& values, std::size_t count) {
    std::vector<engine::Episode> episodes;
    {
        const nb::gil_scoped_release released;
        episodes = engine::largest_episodes(as_span(values), count);
    }
    return as_arrays(episodes);
}

} // namespace

void bind_drawdown(nb::module_& module) {
    module.def("drawdown_curve", &drawdown_curve, "values"_a,
               "Value / running maximum - 1; a missing value carries the last one.");
    module.def("drawdown_episodes", &drawdown_episodes, "values"_a,
               "Rows (peak, start, valley, end or -1) and depths of every drawdown.");
    module.def("largest_drawdowns", &largest_drawdowns, "values"_a, "count"_a,
               "The same for the deepest ones, deepest first.");
}

} // namespace corvex::bindings
