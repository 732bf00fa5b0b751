// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "supplicantfacts.h"

#include "paths.h"
#include "wpactrl.h"

#include <QFile>
#include <QHash>
#include <QList>
#include <QRegularExpression>

#include <array>
#include <cerrno>
#include <memory>

namespace {

/// A person waits. Where the supplicant lives, it answers within milliseconds.
constexpr int TIME_LIMIT_MS = 2000;

QHash<QByteArray, QString> Values(const QByteArray &reply)
{
    QHash<QByteArray, QString> values;
    const QList<QByteArray> lines = reply.split('\n');
    for (const QByteArray &line : lines) {
        const auto separator = line.indexOf('=');
        if (separator > 0)
            values.insert(line.left(separator), QString::fromUtf8(line.mid(separator + 1)));
    }
    return values;
}

/// False when there is no reply.
bool Ask(wpa_ctrl *connection, const QByteArray &command, QByteArray &reply)
{
    std::array<char, 4096> buffer = {};
    size_t length = buffer.size() - 1;
    if (wpa_ctrl_request(connection, command.constData(), static_cast<size_t>(command.size()), buffer.data(),
                         &length, nullptr) != 0)
        return false;
    reply = QByteArray(buffer.data(), static_cast<int>(length));
    return true;
}

/// The name itself, beside that of Utils::SsidToString() in the log, whose text is frozen: the supplicant
/// writes "\xNN" for a byte that is none of ASCII, and a backslash before each quote and each backslash of
/// the name. Tabulators and the like stay as it writes them.
QString SsidOf(const QString &written)
{
    static const QRegularExpression escape(QStringLiteral(R"(\\(?:x([0-9a-fA-F]{2})|(["\\])))"));
    QByteArray name;
    int end = 0;
    for (auto found = escape.globalMatch(written); found.hasNext();) {
        const QRegularExpressionMatch match = found.next();
        name += written.mid(end, match.capturedStart() - end).toUtf8() +
                QByteArray::fromHex(match.captured(1).toLatin1()) + match.captured(2).toLatin1();
        end = static_cast<int>(match.capturedEnd());
    }
    return QString::fromUtf8(name + written.mid(end).toUtf8());
}

SupplicantFacts Problem(const QString &reason)
{
    SupplicantFacts facts;
    facts.problem = reason;
    return facts;
}

} // namespace

SupplicantFacts AskSupplicant(const QString &interfaceName, bool isWireless)
{
    const QByteArray path = QFile::encodeName(WPA_CONTROL_FOLDER + QLatin1Char('/') + interfaceName);
    const std::unique_ptr<wpa_ctrl, void (*)(wpa_ctrl *)> connection(wpa_ctrl_open(path.constData()),
                                                                     &wpa_ctrl_close);
    if (!connection)
        return Problem(errno == EACCES ? QStringLiteral("only root may ask it") : qt_error_string(errno));
    connection->timeLimitMs = TIME_LIMIT_MS;
    QByteArray status;
    QByteArray signal;
    if (!Ask(connection.get(), QByteArrayLiteral("STATUS"), status))
        return Problem(QStringLiteral("it does not answer"));
    if (isWireless && !Ask(connection.get(), QByteArrayLiteral("SIGNAL_POLL"), signal))
        signal.clear();
    return ParseSupplicant(status, signal);
}

SupplicantFacts ParseSupplicant(const QByteArray &status, const QByteArray &signal)
{
    const QHash<QByteArray, QString> values = Values(status);
    SupplicantFacts facts;
    facts.state = values.value(QByteArrayLiteral("wpa_state"));
    facts.ssid = SsidOf(values.value(QByteArrayLiteral("ssid")));
    facts.bssid = values.value(QByteArrayLiteral("bssid"));
    facts.eapState = values.value(QByteArrayLiteral("EAP state"));
    // "25 (EAP-PEAP)", or the bare name
    facts.eapMethod = values.value(QByteArrayLiteral("selectedMethod"))
                          .section(QLatin1Char('('), -1)
                          .remove(QLatin1Char(')'));
    bool hasSignal = false;
    const int signalDbm = Values(signal).value(QByteArrayLiteral("RSSI")).toInt(&hasSignal);
    if (hasSignal)
        facts.signalDbm = signalDbm;
    return facts;
}
