// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "testsupport.h"
#include "wpasupplicantcfg.h"

#include <QFile>
#include <QString>
#include <QStringList>

/// What the tests of the writer of the supplicant's file share.

inline const QString FILE_PATH = QStringLiteral("/tmp/wpa_supplicant.conf");
inline const QString FLAGS = QStringLiteral("/tmp/config/files/");
inline const QByteArray REAL_PASSPHRASE_TOOL = "wpa_passphrase \"$@\"";

inline void ResetSwitches()
{
    WpaSupplicantCfg::_useHashedPsk = true;
    WpaSupplicantCfg::_intel_sae_fix = true;
    WpaSupplicantCfg::_filterSsids = true;
    WpaSupplicantCfg::_useApScan = true;
    WpaSupplicantCfg::_allowWeakCerts = true;
    WpaSupplicantCfg::_fixWpa3 = false;
    WpaSupplicantCfg::_iswireless = false;
}

/// The option lines of the block as finished now, without their tabs.
inline QStringList Options(WpaSupplicantCfg &cfg)
{
    cfg.ConfigPrep();
    QStringList lines = cfg.Block().mid(1, cfg.Block().size() - 2);
    for (QString &line : lines)
        line.remove(0, 1);
    return lines;
}

/// The lines after those with which every wireless block starts here.
inline QStringList ModeOptions(const WpaSupplicantCfg &cfg)
{
    QStringList lines = cfg.Block().mid(4, cfg.Block().size() - 5);
    for (QString &line : lines)
        line.remove(0, 1);
    return lines;
}

inline QByteArray WrittenFile(const QStringList &lines)
{
    return WpaSupplicantCfg::WriteCfg(lines) ? TestSupport::ReadFile(FILE_PATH) : QByteArray("not written");
}

/// Every test starts from nothing: the switches as the program starts, no file, no flag file.
inline void StartWriterFromNothing()
{
    ResetSwitches();
    TestSupport::ClearAnswers();
    TestSupport::RestorePrograms();
    TestSupport::ClearJournal();
    TestSupport::Remove(FLAGS);
    TestSupport::Remove(FILE_PATH);
    TestSupport::Remove("/etc/ssl/certs/company.crt");
    TestSupport::Remove("/etc/ssl/private/client.key");
}
