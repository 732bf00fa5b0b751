// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QObject>
#include <QString>
#include <QStringList>
#include <QVector>

#include <utility>

#include <memory>

/// Builds one `network={...}` block from option lines and writes the whole file that wpa_supplicant reads
/// (wpa_supplicant.conf(5)). One builder belongs to each NamedNetwork. Main thread only: the class-wide
/// switches are set, the blocks are built and the file is written in an order that gives them their meaning.
class WpaSupplicantCfg : public QObject
{
    Q_OBJECT
public:
    /// An SSID and the passphrase of its network.
    using Passphrase = std::pair<QString, QString>;

    explicit WpaSupplicantCfg(QObject *parent);

    void SetSSID(const QString &networkSsid, bool scan);
    void SetPriority(int networkPriority) { priority = networkPriority; }
    /// Background scan. `a`: short interval, `b`: long interval, both in seconds; `c`: threshold in dBm.
    void SetBgParameters(bool use, int a, int b, int c);
    /// Empty means no restriction.
    void SetFrequencyBand(const QString &band) { frequencyBand = band; }
    /// File name of the EAP-FAST credential, without a folder.
    void SetPacFile(const QString &fileName) { pacFile = fileName; }

    static void SetFilterSsid(bool on) { _filterSsids = on; }
    static void SetAllowWeakCerts(bool on) { _allowWeakCerts = on; }

    /// Forgets the options and the finished block.
    void Clear();
    /// Why the supplicant would not take the block as meant, by its first such option; empty when it would.
    /// One such block makes it refuse the whole file.
    QString Problem() const { return problem; }
    void AddOption(const QString &key, const QString &value, bool quote);
    void AddPriority(int value);
    void StartWiredCfg();
    void StartWirelessCfg();
    /// Finishes the block from the options added so far.
    void ConfigPrep();

    // One routine for each security mode; each starts and finishes the block.
    void Unsecured();
    void Wep(bool shared, const QString &key);
    void WpaPersonal(const QString &passphrase);
    void Wpa3Sae(const QString &password);
    void Wpa2Psk3Sae(const QString &passphrase);
    void EapTls(const QString &identity, const QString &caCert, const QString &clientCert,
                const QString &privateKey, const QString &privateKeyPassword, const QString &cipher);
    void EapLeap(const QString &identity, const QString &password, const QString &cipher);
    void EapFast(const QString &identity, const QString &password, const QString &provisioning);
    void PeapGtc(const QString &identity, const QString &password);
    void PeapMschapv2(const QString &identity, const QString &password, const QString &caCert);
    void WiredTls(const QString &identity, const QString &caCert, const QString &clientCert,
                  const QString &privateKey, const QString &privateKeyPassword);
    void WiredPeap(const QString &identity, const QString &password, const QString &caCert);

    /// `psk=` with the hashed key from wpa_passphrase, or the quoted passphrase where the tool gives none.
    /// The tool is run once for each pair of SSID and passphrase, until ForgetUnheldKeys().
    void AddPasswordOption(const QString &passphrase);
    /// Has the keys derived that these need and that are not known, side by side; a key that is asked for
    /// next is there then. It changes nothing but the time that this takes.
    static void DeriveKeys(const QVector<Passphrase> &passphrases);
    /// Forgets the derived keys that are in no builder's block. To be called where networks have gone, before
    /// others are built: a key opens the network, and is not to outlive its builder here.
    static void ForgetUnheldKeys();
    /// The NT hash of the password (MD4 of its UTF-16LE form, RFC 2759 section 8.3) as `hash:` text.
    void AddHashedPasswordOption(const QString &key, const QString &password);

    /// The lines of the finished block, empty when none was built.
    QStringList Block() const { return block; }

    /// Centre frequencies in MHz of every channel of the band, separated by single blanks; empty when the
    /// band is not known.
    static QString GetFrequencyListForBand(const QString &band);

    /// The MAC address of the first wireless link that `ip` lists, else of the first wireless interface by
    /// name; empty when there is none.
    static QString GetMac();

    /// The global header, as the switches stand, and these block lines.
    static QByteArray FileText(const QStringList &lines);

    /// A link's name and address.
    using Link = std::pair<QString, QString>;
    /// The links in what `ip -br link show` printed, in its order.
    static QVector<Link> LinksIn(const QStringList &lines);
    /// The key in what wpa_passphrase printed, as written there; a null text when it holds none made of
    /// hexadecimal digits.
    static QString KeyIn(const QStringList &lines);

    /// Replaces /tmp/wpa_supplicant.conf by the global header and these block lines. False when it cannot be
    /// written: our own earlier file is kept then, what another user put there is removed.
    [[nodiscard]] static bool WriteCfg(const QStringList &lines);

    static bool _useHashedPsk;
    static bool _intel_sae_fix;
    static bool _filterSsids;
    static bool _useApScan;
    static bool _allowWeakCerts;
    static bool _fixWpa3;
    static bool _iswireless;

private:
    void Begin();
    void AddExtraWirelessOptions();
    void AddTlsCredentials(const QString &identity, const QString &caCert, const QString &clientCert,
                           const QString &privateKey, const QString &privateKeyPassword);
    void AddPeapCredentials(const QString &identity, const QString &password, const QString &caCert);
    /// A bare name is looked up in the device's certificate folders; "none" adds nothing.
    void AddCertificate(const QString &key, const QString &value);

    QStringList options;
    QStringList block;
    QString ssid;
    bool scanSsid = false;
    int priority = 0;
    bool useBgSettings = false;
    int bgParam1 = 0;
    int bgParam2 = 0;
    int bgParam3 = 0;
    QString frequencyBand;
    QString pacFile;
    QString problem;
    std::shared_ptr<const QString> hashedKey; ///< in the block; shared by all who have the same
};
