// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "wpasupplicantcontrol.h"

#include "logging.h"
#include "paths.h"
#include "wpactrl.h"

#include <QSocketNotifier>

#include <algorithm>
#include <array>
#include <utility>

#include <unistd.h>

namespace {

/// Room for the longest datagram that is read, and its terminator.
using Buffer = std::array<char, 16384>;

/// More than a socket's queue holds (net.unix.max_dgram_qlen), and an end where a supplicant sends without
/// one.
constexpr int WAITING_LIMIT = 1000;

const QString CONTROL_ERROR = QStringLiteral("WPA_CTRL_ERROR: Control not Open");

/// Events that come in numbers and that nobody acts on. The second prefix means every scan event.
constexpr const char *NOISE[] = {
    "<3>CTRL-EVENT-BSS",
    "<3>CTRL-EVENT-SCAN",
    "<3>CTRL-EVENT-REGDOM-CHANGE init=BEACON_HINT",
    "<3>CTRL-EVENT-EAP-PEER-CERT",
};

bool IsNoise(const QString &message)
{
    for (const char *const prefix : NOISE) {
        if (message.startsWith(QLatin1String(prefix)))
            return true;
    }
    return false;
}

} // namespace

const QString WpaSupplicantControl::CtrlInterfaceDir = WPA_CONTROL_FOLDER + QLatin1Char('/');
const QString WpaSupplicantControl::ERROR_PREFIX = QStringLiteral("WPA_CTRL_ERROR");

WpaSupplicantControl::WpaSupplicantControl(QObject *parent, Reports *sharedReports)
    : QObject(parent),
      reports(sharedReports ? sharedReports : &ownReports),
      connection(nullptr, wpa_ctrl_close),
      log(Logging::GetInstance(Logging::KEEP_LEVEL, false))
{
}

WpaSupplicantControl::~WpaSupplicantControl()
{
    closeControlInterface();
}

bool WpaSupplicantControl::openControlInterface(const QString &interfaceName)
{
    if (connection)
        closeControlInterface();
    open = false;
    const QString name = interfaceName.isEmpty() ? defaultInterface : interfaceName;
    if (name.isEmpty())
        return false;
    socketPath = CtrlInterfaceDir.toLocal8Bit() + name.toLocal8Bit();

    // Level 4 for both failures: they come on every tick for as long as there is no supplicant.
    connection.reset(wpa_ctrl_open(socketPath.constData()));
    if (!connection) {
        Log(Level::TRACE) << "WpaSupplicantControl -- Failed to open control interface at"
                          << socketPath.constData();
        return false;
    }
    if (wpa_ctrl_attach(connection.get()) != 0) {
        Log(Level::TRACE) << "WpaSupplicantControl -- Failed to attach to control interface at"
                          << socketPath.constData();
        Disconnect();
        return false;
    }
    Listen();
    LogOnce(reports->attached, QString::fromLocal8Bit(socketPath))
        << "WpaSupplicantControl -- Attached to control interface at" << socketPath.constData();
    open = true;
    reports->removed.Over();
    return true;
}

void WpaSupplicantControl::Listen()
{
    notifier = new QSocketNotifier(wpa_ctrl_get_fd(connection.get()), QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, &WpaSupplicantControl::ReadMessage);
}

void WpaSupplicantControl::closeControlInterface()
{
    if (connection)
        (void)wpa_ctrl_detach(
            connection.get()); // A supplicant that does not answer forgets us when we are gone.
    Disconnect();
}

void WpaSupplicantControl::Disconnect()
{
    // First the notifier: the descriptor's number may be taken again as soon as it is closed.
    if (notifier)
        notifier->disconnect(this);
    delete notifier;
    connection.reset();
    unread.clear();
    open = false;
}

bool WpaSupplicantControl::isCtrlOpen() const
{
    return connection && open;
}

bool WpaSupplicantControl::CheckPeer()
{
    if (!isCtrlOpen())
        return false;
    if (!wpa_ctrl_peer_alive(connection.get())) {
        LogOnce(reports->lost, QString::fromLocal8Bit(socketPath))
            << "WpaSupplicantControl -- Nobody answers any more at" << socketPath.constData();
        ReadWaiting();
        Disconnect();
        return false;
    }
    if (access(socketPath.constData(), F_OK) == 0)
        return !wpa_ctrl_has_name(connection.get()) && ConnectAnew();
    TellOfRemoval();
    return false;
}

pid_t WpaSupplicantControl::PeerId() const
{
    return connection ? connection->peer : 0;
}

/// Our connection outlives the name, and a supplicant that we let go of could not be stopped any more.
void WpaSupplicantControl::TellOfRemoval()
{
    LogOnce(reports->removed) << "WpaSupplicantControl -- The name is gone, the connection goes on at"
                              << socketPath.constData();
}

/// Whoever clears /tmp takes our name, too. Without it a supplicant in peace would seem to answer nobody, and
/// be killed for it.
bool WpaSupplicantControl::ConnectAnew()
{
    LogOnce(reports->nameless) << "WpaSupplicantControl -- Our own name is gone, connecting anew at"
                               << socketPath.constData();
    ReadWaiting();
    Disconnect(); // The answer to a farewell would not reach us.
    return openControlInterface(QString::fromLocal8Bit(socketPath).mid(CtrlInterfaceDir.size()));
}

QString WpaSupplicantControl::SendCommand(const QString &cmd)
{
    if (!connection)
        return CONTROL_ERROR;
    Buffer buffer;
    size_t length = buffer.size() - 1;
    const QByteArray encoded = cmd.toLocal8Bit();
    // Counted in characters: every command is plain ASCII.
    const auto commandLength = static_cast<size_t>(qMin(cmd.length(), encoded.size()));
    if (wpa_ctrl_request(connection.get(), encoded.constData(), commandLength, buffer.data(), &length,
                         nullptr) != 0)
        return CONTROL_ERROR;
    buffer[length] = '\0';
    return QString::fromLatin1(buffer.data());
}

WpaCtrlEvents WpaSupplicantControl::TakeDropped()
{
    return connection ? std::exchange(connection->dropped, {}) : WpaCtrlEvents();
}

void WpaSupplicantControl::ReadMessage()
{
    // One datagram: the notifier speaks again when more is waiting.
    if (const std::optional<QString> message = Receive())
        unread.append(*message);
    PassOnUnread();
}

void WpaSupplicantControl::ReadWaiting()
{
    ReadAhead();
    PassOnUnread();
}

bool WpaSupplicantControl::IsWaiting(const QString &prefix)
{
    ReadAhead();
    // The notifier knows nothing of what has been received.
    QMetaObject::invokeMethod(this, "PassOnUnread", Qt::QueuedConnection);
    return std::any_of(unread.cbegin(), unread.cend(),
                       [&prefix](const QString &message) { return message.startsWith(prefix); });
}

void WpaSupplicantControl::ReadAhead()
{
    while (unread.size() < WAITING_LIMIT) {
        const std::optional<QString> message = Receive();
        if (!message)
            break;
        unread.append(*message);
    }
}

/// Those that are there now: an event may keep its listener busy for as long as a DHCP attempt takes, and the
/// ticks have their turn before what comes in meanwhile.
void WpaSupplicantControl::PassOnUnread()
{
    for (auto left = unread.size(); left > 0 && !unread.isEmpty(); --left)
        PassOn(unread.takeFirst());
}

/// One datagram up to its first zero byte; nothing when none is waiting.
std::optional<QString> WpaSupplicantControl::Receive()
{
    if (!connection)
        return std::nullopt;
    Buffer buffer;
    size_t length = buffer.size() - 1;
    if (wpa_ctrl_recv(connection.get(), buffer.data(), &length) != 0)
        return std::nullopt;
    buffer[length] = '\0';
    return QString::fromLatin1(buffer.data());
}

void WpaSupplicantControl::PassOn(const QString &message)
{
    if (!IsNoise(message))
        emit MessageReady(message);
}
