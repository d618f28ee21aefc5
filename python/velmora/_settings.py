# SPDX-License-Identifier: BSD-3-Clause
"""The options of a factorization, and the control vectors that they make."""

import typing

ORDERINGS = {"mmd": 0, "cmd": 1, "nd": 2}


class Settings(typing.NamedTuple):
    """The options of factorize(), with the entries of velmora.h that they set."""
    type: typing.Union[str, int, None] = None
    threads: int = 0                              # iparm(3); 0: as many as OpenMP gives
    robust: bool = True                           # iparm(40), (42), (21), (11), (13)
    accuracy: typing.Optional[int] = None         # iparm(40)
    target: float = 0.0                           # dparm(44)
    ordering: str = "nd"                          # iparm(2)
    refinement: typing.Optional[int] = None       # iparm(8)
    perturbation: typing.Optional[int] = None     # iparm(10)
    matching: typing.Optional[int] = None         # iparm(13)
    scaling: typing.Optional[int] = None          # iparm(11)
    pivoting: typing.Optional[int] = None         # iparm(21)
    single_precision: bool = False                # iparm(29); types 1, -2 and 11 have it
    old_factor: int = 0                           # iparm(4)
    keep: int = 0                                 # iparm(38) = n - keep
    iparm: typing.Mapping[int, int] = {}
    dparm: typing.Mapping[int, float] = {}
    heed_memory: bool = True                      # refuses what the machine has no memory for
    verbose: bool = False
    progress: typing.Optional[typing.Callable[[str, float], None]] = None


def configure(handle, matrix, settings):
    """Loads the settings into the control vectors."""
    i, s, mtype = handle.integers, settings, handle.mtype
    indefinite = mtype in (-2, -4, 6)
    i[2] = ORDERINGS[s.ordering]
    i[3] = s.threads
    i[4] = s.old_factor
    i[29] = int(s.single_precision and mtype in (1, -2, 11))
    i[33] = 1
    i[38] = matrix.n - s.keep if s.keep else 0
    i[40] = 0 if s.keep else s.accuracy or 0
    if s.robust:
        if not s.keep:
            i[40] = max(1, s.accuracy or 0)
            i[42] = int(s.old_factor == 0)  # a new factor is what helps an old one
        if mtype not in (2, 4):
            i[8] = 10
        if indefinite:
            i[21] = 1
            if matrix.has_zero_diagonal():
                i[11], i[13] = 1, 2
    for number, value in ((8, s.refinement), (10, s.perturbation), (13, s.matching),
                          (11, s.scaling), (21, s.pivoting)):
        if value is not None:
            i[number] = value
    handle.reals[44] = s.target
    for number, value in s.iparm.items():
        i[number] = value
    for number, value in s.dparm.items():
        handle.reals[number] = value


def settings_of(options):
    """The options of a call by their names."""
    try:
        return Settings(**options)
    except TypeError as wrong:
        raise TypeError(f"{wrong}; the options are {', '.join(Settings._fields)}") from None
