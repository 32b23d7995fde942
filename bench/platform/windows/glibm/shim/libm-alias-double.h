// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

// The public names come from the table of select_windows_x86_64.c, not from aliases.
#define libm_alias_double(from, to)
