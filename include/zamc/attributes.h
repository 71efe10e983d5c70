/* SPDX-License-Identifier: BSD-3-Clause
 * Copyright the zamc authors */

/** @file
 * What the headers tell the compiler about their functions.
 */
#ifndef ZAMC_ATTRIBUTES_H
#define ZAMC_ATTRIBUTES_H

/** Lets the compiler check the arguments of a printf-style function: `text` is the number of the format argument,
 *  `first` that of the first value, or 0 for a function that takes a va_list. */
#if defined(__GNUC__)
#define ZAM_PRINTF(text, first) __attribute__((format(printf, text, first)))
#else
#define ZAM_PRINTF(text, first)
#endif

#endif
