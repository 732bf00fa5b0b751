// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include <zeb/zebnetstatus.h>

int main()
{
    ZebNetStatus written, read;
    written.SetConnected(true);
    return read.SetData(written.GetData()) && read.IsConnected() ? 0 : 1;
}
