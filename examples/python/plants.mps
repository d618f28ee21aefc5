* SPDX-License-Identifier: BSD-3-Clause
* Three plants supply four towns; the cost of a road grows with its traffic (QUADOBJ).  Plant 2
* has a contract to make exactly 45, no road takes more than 30 to town 3.
NAME          PLANTS
ROWS
 N  COST
 L  CAP1
 E  MAKE2
 L  CAP3
 G  TOWN1
 G  TOWN2
 G  TOWN3
 G  TOWN4
COLUMNS
    X11       COST      4.0   CAP1      1.0
    X11       TOWN1     1.0
    X12       COST      6.0   CAP1      1.0
    X12       TOWN2     1.0
    X13       COST      9.0   CAP1      1.0
    X13       TOWN3     1.0
    X14       COST      7.5   CAP1      1.0
    X14       TOWN4     1.0
    X21       COST      5.0   MAKE2     1.0
    X21       TOWN1     1.0
    X22       COST      3.0   MAKE2     1.0
    X22       TOWN2     1.0
    X23       COST      8.0   MAKE2     1.0
    X23       TOWN3     1.0
    X24       COST      6.0   MAKE2     1.0
    X24       TOWN4     1.0
    X31       COST      8.0   CAP3      1.0
    X31       TOWN1     1.0
    X32       COST      7.0   CAP3      1.0
    X32       TOWN2     1.0
    X33       COST      2.5   CAP3      1.0
    X33       TOWN3     1.0
    X34       COST      5.5   CAP3      1.0
    X34       TOWN4     1.0
RHS
    RHS       CAP1      60.0  MAKE2     45.0
    RHS       CAP3      70.0
    RHS       TOWN1     40.0  TOWN2     35.0
    RHS       TOWN3     50.0  TOWN4     25.0
BOUNDS
 UP BND       X13       30.0
 UP BND       X23       30.0
 UP BND       X33       30.0
QUADOBJ
    X11       X11       0.05
    X12       X12       0.08
    X13       X13       0.02
    X14       X14       0.10
    X21       X21       0.04
    X22       X22       0.06
    X22       X23       0.01
    X23       X23       0.05
    X24       X24       0.07
    X31       X31       0.03
    X32       X32       0.02
    X33       X33       0.09
    X34       X34       0.05
ENDATA
