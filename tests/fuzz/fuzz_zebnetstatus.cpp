// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "zebnetstatus.h"

#include <cstdint>
#include <cstdlib>

/// Any bytes as a record: what is accepted can be written again and reads the same.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    ZebNetStatus status;
    const auto bytes = QByteArray::fromRawData(reinterpret_cast<const char *>(data), static_cast<int>(size));
    if (!status.SetData(bytes))
        return 0;

    const QByteArray written = status.GetData();
    ZebNetStatus again;
    if (written.size() != ZebNetStatus::RECORD_SIZE || !again.SetData(written) ||
        again.GetData() != written || again.GetIp() != status.GetIp() ||
        again.IsConnected() != status.IsConnected())
        std::abort();
    return 0;
}
