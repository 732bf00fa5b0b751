# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
"""Simulated radios (mac80211_hwsim), made and removed one at a time.

Radios made in one network namespace hear each other and nothing else, also
after they have been moved to another one, and vanish with it. So scenarios in
namespaces of their own run side by side without disturbing each other.
"""

import os
import pathlib
import socket
import struct

_NETLINK_GENERIC = 16
_NLMSG_ERROR = 2
_NLM_F_REQUEST_ACK = 1 | 4
_GENL_ID_CTRL = 16
_CTRL_CMD_GETFAMILY, _CTRL_ATTR_FAMILY_ID, _CTRL_ATTR_FAMILY_NAME = 3, 1, 2
# drivers/net/wireless/mac80211_hwsim.h
_HWSIM_CMD_NEW_RADIO, _HWSIM_CMD_DEL_RADIO = 4, 5
_HWSIM_ATTR_RADIO_NAME = 17


def _attribute(kind, value):
    return struct.pack("=HH", 4 + len(value), kind) + value + b"\0" * (-len(value) % 4)


def _request(sock, family, command, attributes):
    """Sends one request and returns the bytes of the answer, or raises OSError."""
    body = struct.pack("=BBH", command, 1, 0) + attributes
    sock.send(struct.pack("=IHHII", 16 + len(body), family, _NLM_F_REQUEST_ACK, 1, 0) + body)
    answer = b""
    while True:
        data = sock.recv(65536)
        while len(data) >= 16:
            length, kind = struct.unpack_from("=IH", data)
            if kind == _NLMSG_ERROR:
                error = struct.unpack_from("=i", data, 16)[0]
                if error < 0:
                    raise OSError(-error, os.strerror(-error))
                return answer
            answer = data[20:length]
            data = data[(length + 3) & ~3:]


def _family_id(sock, name):
    wanted = _attribute(_CTRL_ATTR_FAMILY_NAME, name.encode() + b"\0")
    answer = _request(sock, _GENL_ID_CTRL, _CTRL_CMD_GETFAMILY, wanted)
    while answer:
        length, kind = struct.unpack_from("=HH", answer)
        if kind == _CTRL_ATTR_FAMILY_ID:
            return struct.unpack_from("=H", answer, 4)[0]
        answer = answer[(length + 3) & ~3:]
    raise OSError(f"no netlink family {name}")


def _hwsim(command, name):
    with socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, _NETLINK_GENERIC) as sock:
        sock.bind((0, 0))
        sock.settimeout(10)
        family = _family_id(sock, "MAC80211_HWSIM")
        _request(sock, family, command, _attribute(_HWSIM_ATTR_RADIO_NAME, name.encode() + b"\0"))


def unique_name():
    """A name that no other radio of the machine has, in whichever namespace."""
    return f"radio-{os.urandom(4).hex()}"


def make_radio(name):
    """Makes a radio and returns the kernel's name of its network interface."""
    _hwsim(_HWSIM_CMD_NEW_RADIO, name)
    return next(pathlib.Path(f"/sys/class/ieee80211/{name}/device/net").iterdir()).name


def remove_radio(name):
    """Removes a radio and its interfaces, as unloading its driver would."""
    _hwsim(_HWSIM_CMD_DEL_RADIO, name)
