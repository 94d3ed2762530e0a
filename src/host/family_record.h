// How a family of figures fared in the cycles since the last report.
#pragma once

#include <string>
#include <utility>

#include "report.h"

namespace corvane {

class FamilyRecord {
public:
    void Measured() {
        m_any_measured = true;
        m_last = {FigureState::Fresh, ""};
    }

    void Failed(std::string reason) { m_last = {FigureState::Failed, std::move(reason)}; }

    /// There is nothing to measure; what was measured before in the interval goes, too.
    void Absent(std::string reason) {
        m_any_measured = false;
        m_last = {FigureState::Absent, std::move(reason)};
    }

    /// Whether a cycle since the last report measured.
    bool AnyMeasured() const { return m_any_measured; }

    /// The status for a report; begins the next interval.
    FamilyStatus Take() {
        FamilyStatus status = std::exchange(m_last, NoCycle());
        if (std::exchange(m_any_measured, false) && status.state == FigureState::Failed) {
            status.state = FigureState::Stale;
        }
        return status;
    }

private:
    static FamilyStatus NoCycle() { return {FigureState::Failed, "no cycle measured it"}; }

    bool m_any_measured = false;
    FamilyStatus m_last = NoCycle();
};

}  // namespace corvane
