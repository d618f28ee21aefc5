/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * velmora/progress.h - how far a call has come, and how to end it.
 */
#ifndef VELMORA_PROGRESS_H
#define VELMORA_PROGRESS_H

#include "velmora.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * A listener.  It is called on the thread that called velmora(), at the begin and the end of each
 * phase and about twenty times a second between them, as often as that thread's work has
 * stopping places: panels of the factorization, pieces of the ordering, single solves.
 *   data   what was given to velmora_set_progress()
 *   phase  what is being done: 11 analysis, 22 factorization, 33 solution, -22 inversion.  A solve
 *          that goes on to other factors (iparm(42)) tells their phases, too
 *   share  of that phase, from 0 to 1: by operations for 22 and -22, by stages for 11; 0 until the end
 *          for 33
 * Returns 0 to go on.  Any other value ends the call with error -9, which phase 33 tells as well:
 * nothing is leaked, an analysis that was complete stays, a factor that was being made is gone, and
 * the handle takes any phase that fits.  x is not to be used; it may not call velmora() on the same
 * handle.
 */
typedef int (*velmora_progress_fn)(void* data, int phase, double share);

/*
 * Sets the listener of a handle; null for nobody, which costs nothing.  velmorainit() and the release
 * of the handle (phase -1) forget it.  Diagonal systems do not pulse.  In iterative mode the setup is
 * phase 11 or 22, each without shares between 0 and 1, and the direct solver inside tells its own.
 *   pt  handle, 64 words                                                       in, out
 */
VELMORA_API void velmora_set_progress(void** pt, velmora_progress_fn listener, void* data);

#ifdef __cplusplus
}
#endif

#endif
