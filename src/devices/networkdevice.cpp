// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "networkdevice.h"

#include "interfacekind.h"
#include "journal.h"
#include "logging.h"
#include "namednetwork.h"
#include "paths.h"
#include "processsignals.h"
#include "zebnetevent.h"
#include "zebnetstatus.h"

#include <QFile>
#include <QTimer>

#include <array>

#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

/// Wireless details come from a program, so they are read about every 30 s only, not 4 times a second.
constexpr int WIRELESS_REFRESH_TICKS = 120;

/// Most reads find what the last one found: then the text in hand stays, and nothing is allocated.
void SetText(QString &field, const char *text)
{
    if (field != QLatin1String(text))
        field = QLatin1String(text);
}

int OpenSocket()
{
    return ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
}

ifreq RequestFor(const QByteArray &interfaceName)
{
    ifreq request = {};
    qstrncpy(request.ifr_name, interfaceName.constData(), sizeof request.ifr_name);
    return request;
}

} // namespace

NetworkDevice::NetworkDevice(const QString &interfaceName, QObject *parent)
    : QObject(parent),
      logger(Logging::GetInstance(Logging::KEEP_LEVEL, false)),
      name(interfaceName),
      status(std::make_unique<ZebNetStatus>()),
      socketFd(OpenSocket()),
      timer(std::make_unique<QTimer>()),
      carrierLosses(QFile::encodeName(SYS_NET + interfaceName)),
      kernelName(QFile::encodeName(interfaceName)),
      carrierFile(kernelName)
{
    qRegisterMetaType<NetworkDevice *>();
    connect(timer.get(), &QTimer::timeout, this, &NetworkDevice::onTimerTrip);
    Log(Level::TRACE) << "Create NetworkDevice" << name;
}

NetworkDevice::~NetworkDevice()
{
    qDeleteAll(namedNetworks);
    if (socketFd != -1)
        ::close(socketFd);
}

void NetworkDevice::RefreshWirelessStatus()
{
    essid.clear();
    accessPoint.clear();
    encKey.clear();
}

void NetworkDevice::UseNewDriver(bool /*on*/) {}

void NetworkDevice::RefreshStatus()
{
    const bool hadCarrier = isRunning;
    isUp = false;
    isRunning = false;
    if (socketFd == -1)
        socketFd = OpenSocket(); // There may have been no descriptor to be had at that moment.
    if (socketFd == -1) {
        for (QString *field : {&ipAddress, &broadcast, &netmask, &macAddress})
            field->clear();
        Log(Level::VERBOSE) << "NetworkDevice::RefreshStatus --" << name << " device not found";
        return;
    }

    ReadAddress(SIOCGIFADDR, ipAddress);
    ReadAddress(SIOCGIFBRDADDR, broadcast);
    ReadAddress(SIOCGIFNETMASK, netmask);
    ReadMacAddress();
    ReadCarrier();
    FollowLink();
    if (hadCarrier && !isRunning)
        carrierLosses.NoteSeen();

    status->SetConnected(isRunning);
    status->SetWireless(isWireless);
    status->SetIfaceInfo(macAddress, ipAddress, broadcast, netmask);

    if (!isRunning && fallbackEnabled) {
        Log(Level::TRACE) << "NetworkDevice::RefreshStatus:: clear fallback mode";
        inFallback = false;
    }
}

/// What was asked for and what is are two things: somebody else, or the driver, may have taken the link down,
/// or bringing it up may have failed. The next StartDevice() then does it again.
void NetworkDevice::FollowLink()
{
    const auto now = RetryPause::Time::clock::now();
    if (isUp) {
        startPause.NoteSuccess(now);
        reports->radio.Over();
        toldRadioBlock.clear();
        return;
    }
    // An interface that is gone has no hardware address either, and nobody can bring it up.
    if (!linkUp || stopped || macAddress.isEmpty())
        return;
    // Nobody tries in vain, so that nothing is left to wait for when it is switched on.
    if (IsRadioOff() || !startPause.IsDue(now))
        return;
    LogOnce(reports->start, upAnswer)
        << "NetworkDevice::RefreshStatus -- the link is down, bringing it up again:"
        << (upAnswer.isEmpty() ? name : name + QStringLiteral(", last answer: ") + upAnswer);
    linkUp = false;
}

bool NetworkDevice::IsRadioOff()
{
    const QString block = isWireless ? RadioBlock(name) : QString();
    // Told once until it is another or the link is up: this is asked several times a second.
    if (!block.isEmpty() && block != toldRadioBlock)
        LogOnce(reports->radio, block)
            << "NetworkDevice::RefreshStatus -- the radio is switched off" << block << name;
    toldRadioBlock = block;
    return !block.isEmpty();
}

/// Leaves the field empty when the interface has no such address.
void NetworkDevice::ReadAddress(unsigned long request, QString &field) const
{
    ifreq answer = RequestFor(kernelName);
    std::array<char, INET_ADDRSTRLEN> text = {};
    // The three answers share one place in the union.
    if (::ioctl(socketFd, request, &answer) == 0) {
        const auto *address = reinterpret_cast<const sockaddr_in *>(&answer.ifr_addr);
        ::inet_ntop(AF_INET, &address->sin_addr, text.data(), text.size());
    }
    SetText(field, text.data());
}

void NetworkDevice::ReadMacAddress()
{
    constexpr int MAC_BYTES = 6;
    static const char DIGITS[] = "0123456789ABCDEF";

    ifreq answer = RequestFor(kernelName);
    std::array<char, sizeof "00:00:00:00:00:00"> text = {};
    if (::ioctl(socketFd, SIOCGIFHWADDR, &answer) == 0) {
        char *next = text.data();
        for (int i = 0; i < MAC_BYTES; ++i) {
            const auto byte = static_cast<unsigned char>(answer.ifr_hwaddr.sa_data[i]);
            if (i > 0)
                *next++ = ':';
            *next++ = DIGITS[byte >> 4];
            *next++ = DIGITS[byte & 0xf];
        }
    }
    SetText(macAddress, text.data());
}

void NetworkDevice::ShareReports(std::shared_ptr<DeviceReports> &known)
{
    if (known)
        reports = known;
    else
        known = reports;
}

void NetworkDevice::ReadCarrier()
{
    const char carrier = carrierFile.Read(socketFd);
    isUp = carrier != '\0';
    isRunning = carrier == '1';
}

/// Whether an attempt to get an address failed for no fault of the network: the link went since the last
/// look, which the rest of the daemon goes by, or we are to end.
bool NetworkDevice::WasCutShort() const
{
    return (isRunning && LinkAttribute(name, "carrier") != "1") || ProcessSignals::IsEndAsked();
}

void NetworkDevice::UpdateIpInformation()
{
    const JournalSubject subject(name, DefinitionName());
    status->SetIfaceInfo(macAddress, ipAddress, broadcast, netmask);
    // The same address found again, or still none, is no news.
    LogOnce(reports->address, ipAddress) << "NetworkDevice::UpdateIpInformation" << macAddress << ","
                                         << ipAddress << "," << status->GetBroadcast();
    if (ipAddress.isEmpty() || !isUp) {
        inFallback = false;
        ipAnnounced = false;
        return;
    }
    SendEvent(ZebNetEvent::ADDRESS, ZebNetEvent::SUCCEEDED);
    ipAnnounced = true;
}

void NetworkDevice::NoteAddressGone()
{
    ipAnnounced = false;
    reports->address.Over();
}

QString NetworkDevice::toString() const
{
    QStringList lines = {
        QStringLiteral("NetworkAdaptor %1, isUp=%2, isRunning=%3, isWireless=%4")
            .arg(name, QString::number(isUp), QString::number(isRunning), QString::number(isWireless))};
    // With two blanks after the first colon, and one before each comma below: kept as they are.
    if (isRunning)
        lines << QStringLiteral("MAC Address:  %1, Inet Address: %2, Inet Mask: %3")
                     .arg(macAddress, ipAddress, netmask);
    if (isWireless)
        lines << QStringLiteral("ESSID=%1 ,AccessPoint=%2 ,LinkQuality=%3 ,EncKey=%4")
                     .arg(essid, accessPoint, QString::number(linkQuality), encKey);
    return lines.join(QLatin1Char('\n'));
}

void NetworkDevice::NotePublished()
{
    publishedAddress = ipAddress;
    publishedBroadcast = broadcast;
    publishedNetmask = netmask;
    publishedMacAddress = macAddress;
    publishedCarrier = isRunning;
}

bool NetworkDevice::IsPublished() const
{
    return publishedAddress == ipAddress && publishedBroadcast == broadcast && publishedNetmask == netmask &&
           publishedMacAddress == macAddress && publishedCarrier == isRunning;
}

QString NetworkDevice::DefinitionName() const
{
    return currentNetwork ? currentNetwork->Name() : QString();
}

QString NetworkDevice::OnlyDefinitionName() const
{
    return namedNetworks.size() == 1 ? namedNetworks.cbegin().key() : QString();
}

void NetworkDevice::SendEvent(int code, int value)
{
    Log(Level::TRACE) << "NetworkDevice::SendEvent" << code << value;
    emit SendEventMessage(code, value, this);
}

void NetworkDevice::onTimerTrip()
{
    RefreshStatus();
    if (usesSupplicant && ++wirelessTicks > WIRELESS_REFRESH_TICKS) {
        RefreshWirelessStatus();
        wirelessTicks = 0;
    }
    if (stopped && !isUp)
        timer->stop();
}
