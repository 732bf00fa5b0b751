// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "retrypause.h"

#include <QObject>
#include <QString>
#include <QStringList>

#include <map>

class Program;
class QTimer;

/// Joins the Ethernet-named interfaces into one bond (Documentation/networking/bonding) that keeps one
/// address across links. With renaming on, the bond takes over the wired interface's name. Owned by the
/// service object; main thread only. The DHCP client is the only step that is not waited for.
class BondedDevice : public QObject
{
    Q_OBJECT
public:
    explicit BondedDevice(QObject *parent);
    ~BondedDevice() override;

    /// The saved address in this text of its file, empty when there is none that can be used: the first line
    /// must be an address and its line feed, 18 characters.
    static QString AddressIn(const QByteArray &contents);
    /// Whether modinfo(8) found the driver, by what it printed.
    static bool IsDriverIn(const QStringList &lines);
    /// The bonds that the driver knows, whoever made them.
    static QStringList BondNames();

    bool isBondingEnabled() const;
    /// The bonding mode's number as decimal text.
    QString GetDesiredMode() const;
    bool isAvailable();
    void EnableBonding();
    void DisableBonding();
    /// Enslaves the Ethernet interfaces that are no port, as one that was pulled and put back: under its own
    /// name, or under the next free one where the bond has that. Only those that were so at the last call, as
    /// udev may be about to rename a newer one. True for as long as there is one to look at.
    bool AdoptPorts();
    void StartDhclientInit(const QString &interfaceName);
    void ReleaseDhclient();
    void SetDhclient();
    QString getBondedDeviceActiveSlaveFileName() const;

    void setBringupInterface(bool on) { bringUp = on; }
    void setRenaming(bool on) { renaming = on; }
    void setUsePrimary(bool on) { usePrimary = on; }
    bool isBondingActive() const { return bondingActive; }
    /// The driver is loaded, which counts as active, and has no bond: it was loaded at boot, or somebody
    /// deleted ours.
    static bool IsBondMissing();
    /// The interfaces to enslave, or enslaved, under their current names.
    QStringList getSlaves() const { return slaves; }
    /// Of the bond that was made or found last; empty before.
    QString Name() const { return wiredName; }

    static bool driverFound;
    static bool enableChecked;
    static const QStringList BondingModeList;

signals:
    void dhclientReady();

public slots:
    void onStartProcessFinished(int exitCode);
    void onMyTimerTrip();

private:
    // Steps of EnableBonding() and DisableBonding().
    void TakeOverWiredName();
    void LoadDriver();
    /// False when the bond cannot be added: there is no driver, or a bond already.
    bool MakeBond();
    void GiveNameBack();
    void TearDown();

    void AdoptPort(const QString &port, const QString &bond);
    void WaitForDhclient();

    bool dhclientFinished = false;
    QStringList slaves;
    bool usePrimary = false;
    bool bondingActive = false;
    const QString swapName = QStringLiteral("eth0-swap");
    bool renaming = false;
    bool bringUp = false;
    QString bondName = QStringLiteral("bond0");
    QString wiredName;
    QString renamedName;
    std::map<QString, RetryPause> loosePorts; ///< Ethernet interfaces that are no port, by name
    Program *dhcpProcess;                     ///< child
    QTimer *pollTimer;                        ///< child
};
