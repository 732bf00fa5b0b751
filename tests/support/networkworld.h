// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "debugoutput.h"
#include "logging.h"
#include "namednetwork.h"
#include "testsupport.h"
#include "writerworld.h"

#include <QMap>
#include <QString>
#include <QStringList>
#include <QtTest>

#include <optional>

/// What the tests of a stored network share: a store of one, the files that it names, what comes of it.

inline const QString SCEP_FOLDER = QStringLiteral("/tmp/config/files/scep/");
inline const QString SCEP_CA = QStringLiteral("/etc/ssl/certs/scepCA-%1.crt");

/// The debug output of the test.
inline std::optional<DebugOutput> debugOutput;

inline QByteArray Element(const QString &key, const QString &value)
{
    return '<' + key.toUtf8() + '>' + value.toHtmlEscaped().toUtf8() + "</" + key.toUtf8() + '>';
}

using Properties = QMap<QString, QString>;

/// A store with these settings and one network; each write is a new version of the file.
inline void WriteNetwork(const QString &name, const Properties &properties, const Properties &settings = {})
{
    QByteArray xml = "<networkconfig>";
    for (auto setting = settings.begin(); setting != settings.end(); ++setting)
        xml += Element(setting.key(), setting.value());
    xml += "<network>" + Element("name", name);
    for (auto property = properties.begin(); property != properties.end(); ++property)
        xml += Element(property.key(), property.value());
    TestSupport::WriteStore(xml + "</network></networkconfig>\n");
}

inline Properties Wireless(const QString &securityMode, const Properties &more = {})
{
    Properties properties = more;
    properties.insert("ssid", "Office");
    properties.insert("securityMode", securityMode);
    return properties;
}

inline void WriteScepFiles(const QStringList &names)
{
    for (const QString &name : names)
        TestSupport::WriteFile(SCEP_FOLDER + name, "");
}

inline QStringList Values(const NamedNetwork &network, const QString &key)
{
    return network.Block().filter('\t' + key + '=').replaceInStrings('\t' + key + '=', "");
}

/// Every test starts from nothing: the switches as the program starts, no file, no flag file.
inline void StartNetworkFromNothing()
{
    ResetSwitches();
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::VERBOSE);
    for (int i = 0; i < 3; ++i)
        TestSupport::Remove(SCEP_CA.arg(i));
    TestSupport::Remove("/tmp/config/files");
    TestSupport::Remove(FILE_PATH);
    TestSupport::ClearAnswers();
    TestSupport::Answer("wpa_passphrase", "wpa_passphrase \"$@\"");
    // The shell line that restarts the SCEP daemon pauses for a second.
    TestSupport::AddProgram("sleep");
    TestSupport::ClearJournal();
    TestSupport::ClearLog();
    debugOutput.emplace();
}

inline void EndNetwork()
{
    // The shell starts the SCEP daemon in the background: it must not come into the next test's journal.
    const auto restarts = TestSupport::Journal().count("killall scepd");
    QTRY_COMPARE(TestSupport::Journal().count("scepd -d"), restarts);
    debugOutput.reset();
}
