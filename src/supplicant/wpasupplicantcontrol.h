// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "reportonce.h"

#include <QByteArray>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>

#include <memory>
#include <optional>

#include <sys/types.h>

class Logging;
class QSocketNotifier;
struct wpa_ctrl;
struct WpaCtrlEvents;

/// One control connection to the supplicant of one interface: sends commands, and hands every event that is
/// not mere noise to its owner. Lives on the main thread, with the supervisor that owns it.
class WpaSupplicantControl : public QObject
{
    Q_OBJECT
public:
    /// What an operator is told, and counted when it comes again and again.
    struct Reports
    {
        ReportOnce attached{ReportOnce::Of::STEP};
        ReportOnce lost{ReportOnce::Of::STEP};
        ReportOnce removed, nameless;
    };

    /// Where several objects follow each other, they count together in `sharedReports`, which outlives them.
    explicit WpaSupplicantControl(QObject *parent, Reports *sharedReports = nullptr);
    ~WpaSupplicantControl() override;

    /// Opens, registers for events and starts listening. An empty name means wlan0.
    bool openControlInterface(const QString &interfaceName);
    void closeControlInterface();
    /// Passes on the events that are still unread: those that a command meets while it waits are lost.
    void ReadWaiting();
    /// Whether an event that begins so waits to be passed on. For one who is told of an event and asks
    /// whether it still holds: the order of the events stays.
    bool IsWaiting(const QString &prefix);
    /// Closes without a word to the supplicant, whose answer might have to be waited for.
    void Disconnect();
    bool isCtrlOpen() const;
    /// Notices a socket that was closed without sending anything: isCtrlOpen() is false from then on. The
    /// last events come first. Tells of a socket whose name is gone; the connection to it stays. Connects
    /// anew where our own name is gone: true then, as events may have been lost.
    bool CheckPeer();
    /// The process that sent the last reply, as the kernel names it; 0 when it does not.
    pid_t PeerId() const;

    /// The supplicant's reply with its line feed, or "WPA_CTRL_ERROR: Control not Open" where there is no
    /// connection, no answer within 10 s, or an error.
    QString SendCommand(const QString &cmd);
    /// What was among the events that commands met and dropped since this was last asked.
    WpaCtrlEvents TakeDropped();

    static const QString CtrlInterfaceDir;
    /// What the reply begins with when there is none.
    static const QString ERROR_PREFIX;

signals:
    /// One event, whole, with its priority prefix. Emitted on the main thread. A slot may close and reopen
    /// this object, but deletes it later only (deleteLater()): it goes on with the next event.
    void MessageReady(const QString &message);

private slots:
    void ReadMessage();
    void PassOnUnread();

private:
    void TellOfRemoval();
    bool ConnectAnew();
    std::optional<QString> Receive();
    void ReadAhead();
    void PassOn(const QString &message);
    void Listen();

    Reports ownReports;
    Reports *const reports;
    [[maybe_unused]] QString interface;                         ///< kept empty: nobody writes or reads it
    QString defaultInterface = QStringLiteral("wlan0");         ///< for an empty name
    QByteArray socketPath;                                      ///< the supplicant's, in the local encoding
    std::unique_ptr<wpa_ctrl, void (*)(wpa_ctrl *)> connection; ///< null when closed
    QPointer<QSocketNotifier> notifier;                         ///< for the connection; owned as a child
    QStringList unread;                                         ///< received, and not passed on yet
    bool open = false;             ///< the supplicant has accepted us: its events come here
    [[maybe_unused]] Logging *log; ///< kept: the lines go through Log
};
