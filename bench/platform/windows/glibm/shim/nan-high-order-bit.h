// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

// x86-64 marks a quiet NaN, not a signalling one, by the high bit of the mantissa.
#define HIGH_ORDER_BIT_IS_SET_FOR_SNAN 0
