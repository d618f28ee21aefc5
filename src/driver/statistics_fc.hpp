// SPDX-License-Identifier: BSD-3-Clause
/// The text report that closes a call, and the arithmetic of the call's timers.
#pragma once

#include "driver/control.hpp"

namespace vlm {

/// What the report says about the call itself; all else it reads from the control record.
struct StatisticsCall {
  int phase = 0;
  int mtype = 0;
  int n = 0;
  int msg = 0;  ///< 0: no report
  int nrhs = 0;
  int mnum = 0;        ///< matrix number, named when its factor was released
  int iterations = 0;  ///< of a stabilised solve, iparm(20)
  int deleted = 0;     ///< phase < 1: 1 when the factor of mnum was released,
                       ///< otherwise the negated number of released factors
};

/// Closes the timers of a call: its total, and the time since the last stage, which went into
/// allocation.
void finish_timers(Clocks& clocks);

/// Prints the report to standard output when call.msg is not 0; after a failure with the
/// fields known so far.  The timers must be closed.
void statistics_fc(const Control& control, const StatisticsCall& call);

}  // namespace vlm
