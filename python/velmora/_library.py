# SPDX-License-Identifier: BSD-3-Clause
"""The shared library: where it is found, and one handle of it."""

import ctypes
import ctypes.util
import os
import pathlib
import signal
import _signal  # the same calls without the look-up of names, which takes longer than small solves
import threading
import time
import weakref

import numpy as np

from . import errors

_SONAME = "libvelmora.so.4"


def _candidates():
    """Paths and names to try, in this order."""
    named = os.environ.get("VELMORA_LIBRARY")
    if named:
        yield named
        return
    here = pathlib.Path(__file__).resolve().parent
    yield str(here / _SONAME)
    # PREFIX/lib/python3/dist-packages/velmora lies below the folder of the library.
    for folder in here.parents:
        if folder.name in ("lib", "lib64"):
            yield str(folder / _SONAME)
            yield from (str(found) for found in sorted(folder.glob(f"*-linux-gnu*/{_SONAME}")))
    yield _SONAME
    found = ctypes.util.find_library("velmora")
    if found:
        yield found
    yield f"/usr/local/lib/{_SONAME}"


def _load():
    tried = []
    for name in _candidates():
        try:
            return ctypes.CDLL(name)
        except OSError as failure:
            tried.append(str(failure))
    raise ImportError(
        "the Velmora library was not found: install it, or set VELMORA_LIBRARY to the path of "
        f"{_SONAME} ({'; '.join(tried)})")


lib = _load()
_address = ctypes.c_void_p
lib.velmora.argtypes = [_address] * 17
lib.velmora.restype = None
lib.velmorainit.argtypes = [_address] * 6
lib.velmorainit.restype = None
lib.velmora_schur.argtypes = [_address] * 7
lib.velmora_schur.restype = None
lib.velmora_last_message.argtypes = [ctypes.c_char_p, ctypes.c_int]
lib.velmora_last_message.restype = None
lib.velmora_version.restype = ctypes.c_char_p
lib.velmora_error_text.argtypes = [ctypes.c_int]
lib.velmora_error_text.restype = ctypes.c_char_p

lib.velmora_find_type.argtypes = [ctypes.c_int] * 3 + [_address] * 3 + [
    ctypes.POINTER(ctypes.c_char_p)]
lib.velmora_upper_triangle.argtypes = [ctypes.c_int] * 3 + [_address] * 6

lib.velmora_require_memory.argtypes = [ctypes.c_longlong, _address]

LISTEN = ctypes.CFUNCTYPE(ctypes.c_int, ctypes.c_void_p, ctypes.c_int, ctypes.c_double)
lib.velmora_set_progress.argtypes = [_address] * 3
lib.velmora_set_progress.restype = None
PHASES = {11: "analysis", 22: "factorization", 33: "solution", -22: "inversion"}

FOLLOW = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.c_int, ctypes.c_double)
lib.norv_set_progress.argtypes = [ctypes.c_void_p, ctypes.c_void_p]
lib.norv_set_progress.restype = None


def version() -> str:
    """Version of the library that is running."""
    return lib.velmora_version().decode()


def last_message():
    """What the calling thread's last failed call said: the reason, and the advice."""
    text = ctypes.create_string_buffer(1024)
    lib.velmora_last_message(text, 1024)
    reasons, advice = [], ""
    for line in text.value.decode(errors="replace").splitlines():
        if line.startswith("*** error VELMORA "):
            continue
        line = line.removeprefix("*** ").removeprefix("error velmora: ")
        if line.startswith("what to do: "):
            advice = line.removeprefix("what to do: ")
        elif line.strip():
            reasons.append(line.strip())
    return ", ".join(reasons), advice


def failure(code: int, definite: bool) -> errors.VelmoraError:
    """The exception for a failed call of this thread."""
    message, advice = last_message()
    message = message or lib.velmora_error_text(code).decode()
    kind = errors.VelmoraError
    if code in (-1, -3, -7):
        kind = errors.InputError
    elif code == -2:
        kind = errors.OutOfMemoryError
    elif code == -4:
        kind = errors.NotPositiveDefiniteError if definite else errors.SingularMatrixError
    elif code == -6:
        kind = errors.SingularMatrixError
    elif -103 <= code <= -100:
        kind = errors.ConvergenceError
    return kind(code, message, advice)


def _release(pt, iparm, dparm, mtype):
    integers = [ctypes.c_int(value) for value in (1, 1, mtype, -1, 1, 1, 0, 0)]
    maxfct, mnum, kind, phase, n, nrhs, quiet, error = (ctypes.addressof(i) for i in integers)
    lib.velmora(pt.ctypes.data, maxfct, mnum, kind, phase, n, None, None, None, None, nrhs,
                iparm.ctypes.data, quiet, None, None, error, dparm.ctypes.data)


_call = threading.local()  # the call that this thread is in


@LISTEN
def _listen(_, phase, share):
    """Runs on the thread of the call, where a pending Ctrl-C first sets its mark."""
    if _call.interrupted:
        return 1
    if _call.progress is not None:
        try:
            _call.progress(PHASES[phase], share)
        except BaseException as failure:
            _call.failure = failure
            return 1
    return int(_call.interrupted)


_LISTENER = ctypes.cast(_listen, ctypes.c_void_p).value


class _Watch:
    """For the time of a call: the caller's function is told its progress, and Ctrl-C ends it.

    The signal's own handler would raise its exception anywhere in the listener, whose exceptions are
    lost; it is kept back until the call has ended.
    """

    def __init__(self, handle, progress):
        call = self._call = _call.__dict__
        self._outer = call.get("progress")  # where the caller's function itself makes calls
        call["interrupted"], call["failure"], call["progress"] = False, None, progress
        self._handler = None
        if threading.current_thread() is threading.main_thread():
            handler = _signal.getsignal(signal.SIGINT)
            if callable(handler):
                self._handler = handler
                _signal.signal(signal.SIGINT, self._mark)
        listens = self._handler is not None or progress is not None
        if listens != handle.listens:
            lib.velmora_set_progress(handle.at_pt, _LISTENER if listens else None, None)
            handle.listens = listens

    def _mark(self, *_):
        self._call["interrupted"] = True

    def end(self):
        """Raises what the call was ended for."""
        call = self._call
        call["progress"] = self._outer
        if self._handler is not None:
            _signal.signal(signal.SIGINT, self._handler)
            if call["interrupted"]:
                self._handler(signal.SIGINT, None)
        if call["failure"] is not None:
            failure, call["failure"] = call["failure"], None
            raise failure


def _pointer(array):
    return None if array is None else array.ctypes.data


class Handle:
    """A handle with its control vectors, which are numbered from 1 in iparm() and dparm().

    Takes one call at a time; a second thread waits.  Calls release the interpreter's lock.
    """

    def __init__(self, mtype: int, iterative: bool = False):
        self.mtype = mtype
        self.pt = np.zeros(64, dtype=np.uintp)
        self.integers = np.zeros(65, dtype=np.int32)
        self.reals = np.zeros(65)
        self.seconds = 0.0  # spent in the library
        self.progress = None  # called with a phase's name and the share of it that is done
        self.listens = False
        self.at_pt = self.pt.ctypes.data
        self._at_controls = self.integers.ctypes.data + 4, self.reals.ctypes.data + 8
        self._lock = threading.Lock()
        self._scalars = (ctypes.c_int * 8)(1, 1, mtype, 0, 0, 0, 0, 0)
        at = ctypes.addressof(self._scalars)
        self._at = [at + 4 * k for k in range(8)]
        solver = ctypes.c_int(1 if iterative else 0)
        lib.velmorainit(self.at_pt, self._at[2], ctypes.addressof(solver), self._at_controls[0],
                        self._at_controls[1], self._at[7])
        self._finalizer = weakref.finalize(self, _release, self.pt, self.integers[1:],
                                           self.reals[1:], mtype)

    def close(self):
        """Releases the memory of the library."""
        self._finalizer()

    def run(self, phase, matrix, b=None, x=None, nrhs=1, values=None, ia=None, ja=None,
            verbose=False):
        """One call of velmora().  Returns its error."""
        with self._lock:
            if not self._finalizer.alive:
                raise errors.InputError(-1, "the factor has been closed")
            scalars, at = self._scalars, self._at
            scalars[3:8] = phase, matrix.n, nrhs, int(verbose), 0
            watch = _Watch(self, self.progress)
            start = time.perf_counter()
            lib.velmora(self.at_pt, at[0], at[1], at[2], at[3], at[4],
                        _pointer(matrix.a if values is None else values),
                        _pointer(matrix.ia if ia is None else ia),
                        _pointer(matrix.ja if ja is None else ja), None, at[5],
                        self._at_controls[0], at[6], _pointer(b), _pointer(x), at[7],
                        self._at_controls[1])
            self.seconds += time.perf_counter() - start
            watch.end()
            return scalars[7]
