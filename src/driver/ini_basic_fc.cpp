// SPDX-License-Identifier: BSD-3-Clause
/// Defaults and control record of a new analysis, see ini_basic_fc.hpp.
#include "driver/ini_basic_fc.hpp"

namespace vlm {

void load_defaults(int mtype, View<int> iparm) {
  if (iparm(1) != 0) return;
  iparm(2) = 2;
  for (int i = 4; i <= 14; ++i) iparm(i) = 0;
  iparm(18) = iparm(19) = -1;
  for (int i = 20; i <= 23; ++i) iparm(i) = 0;
  for (const int i : {24, 25, 28, 29, 31, 33, 38, 50, 51}) iparm(i) = 0;
  iparm(52) = 1;
  switch (mtype) {
    case -2:
    case -4:
    case 6:
      iparm(10) = 8;
      iparm(21) = 1;
      break;
    case 1:
    case 3:
      iparm(10) = 13;
      break;
    case 11:
    case 13:
      iparm(10) = 13;
      iparm(11) = iparm(13) = 1;
      break;
    default:
      break;
  }
}

void ini_basic_fc(Control& control) {
  Control fresh;
  fresh.nrecords = control.nrecords;
  fresh.msg = control.msg;
  fresh.dpar.start = control.dpar.start;
  control = fresh;
}

}  // namespace vlm
