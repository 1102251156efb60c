#pragma once

#include "corvex/engine/portfolio/batch.hpp"
#include "corvex/engine/portfolio/result.hpp"
#include "corvex/engine/statistics/curve_dates.hpp"

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

namespace corvex::engine::inline v1 {

/// The days of the sessions that end one, which all runs of a batch have in common.
std::vector<Nanos> days_of(const Calendar& calendar);

/// Sums up the runs of a batch, one after the other. What the dates of a curve tell is kept for the
/// next run, since the curves of most begin together.
class RunReader {
  public:
    /// @param days  as days_of() has them; they must outlive the reader, as the batch must
    RunReader(const Batch& batch, std::span<const Nanos> days) : batch_{batch}, days_{days} {}
    /// A copy keeps nothing of what the other has read: it is for another thread.
    RunReader(const RunReader& other) : RunReader(other.batch_, other.days_) {}
    RunReader& operator=(const RunReader&) = delete;
    ~RunReader() = default;

    /// Writes the run's curve, too, where the batch wants curves.
    RunSummary read(std::size_t run, const SimulationResult& result);

  private:
    [[nodiscard]] std::array<double, kFigureCount>
    figures(std::size_t plan, const CurveStart& start, std::span<const double> equity);
    const CurveDates& dates(std::size_t count, std::optional<Nanos> lead);
    [[nodiscard]] double yearly_turnover(std::size_t plan, const CurveStart& start,
                                         const SimulationResult& result) const;
    void sum_blocks(std::size_t first, std::span<const double> equity, RunSummary& summary);
    void write_curve(std::size_t run, std::size_t first, std::span<const double> equity) const;

    const Batch& batch_;
    std::span<const Nanos> days_;
    std::vector<double> curve_; ///< of the run that is being read, as its figures see it
    std::vector<double> returns_;
    std::vector<Nanos> led_days_; ///< a day before the others, and these
    std::optional<Nanos> lead_;
    std::optional<CurveDates> dates_; ///< of the run before
};

} // namespace corvex::engine::inline v1
