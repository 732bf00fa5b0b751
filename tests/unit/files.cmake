# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers

corvi_add_unit_test(tst_filetrust LIBS files)
corvi_add_unit_test(tst_securefile LIBS files)
