// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QByteArray>
#include <QByteArrayList>

/// Takes secrets out of texts that leave the machine. What is kept is what is known to be none: what is
/// misspelt, added or broken goes.
class Masking
{
public:
    /// The store as XML: elements alone, the text of those that may be secret replaced. Up to the first error
    /// where it is not well-formed.
    QByteArray Store(const QByteArray &xml);
    /// The supplicant's configuration, wpa_supplicant.conf(5): the values of options that may be secret
    /// replaced, and lines that are no option left out.
    QByteArray SupplicantFile(const QByteArray &contents);
    /// The DHCP client's configuration, dhclient.conf(5): the keys for updates of name servers replaced.
    QByteArray ClientFile(const QByteArray &contents);
    /// Any other text: each secret that was found so far, as it stands or in hexadecimal, replaced.
    QByteArray Text(QByteArray text) const;

private:
    void Note(const QByteArray &secret);

    QByteArrayList secrets; ///< as texts may hold them
};
