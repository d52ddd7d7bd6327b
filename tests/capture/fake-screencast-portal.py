#!/usr/bin/python3
# A screen-sharing portal for tests, on the session bus it is started on: the desktop object with the
# ScreenCast interface, answering each request through a Request object's Response signal as the real
# portal does. Each call is written to LOG as a line of JSON (the method and its options), so that a test
# can check the calls and their order.
#
# Usage: fake-screencast-portal.py LOG [--cursor-modes N] [--version N] [--cancel METHOD] [--node N]
#                                      [--pipewire SOCKET] [--no-screencast] [--end-first METHOD]
#                                      [--log-properties]
# --cancel answers METHOD as a cancelled dialog; --pipewire hands out connections to SOCKET (else to
# /dev/null); --log-properties logs each property read too, as "Get" with the property's name. Each
# start gives a new restore token, "token-1", "token-2", …

import argparse
import json
import os
import socket

import dbus
import dbus.mainloop.glib
import dbus.service
from gi.repository import GLib

BUS = "org.freedesktop.portal.Desktop"
PATH = "/org/freedesktop/portal/desktop"
SCREENCAST = "org.freedesktop.portal.ScreenCast"

arguments = argparse.ArgumentParser()
arguments.add_argument("log")
arguments.add_argument("--cursor-modes", type=int, default=1 | 2 | 4)
arguments.add_argument("--version", type=int, default=4)
arguments.add_argument("--cancel", default="")
arguments.add_argument("--node", type=int, default=57)
arguments.add_argument("--pipewire", default="")
arguments.add_argument("--no-screencast", action="store_true")
arguments.add_argument("--end-first", default="")
arguments.add_argument("--log-properties", action="store_true")
options = arguments.parse_args()


def plain(value):
    if isinstance(value, (dbus.Boolean,)):
        return bool(value)
    if isinstance(value, (dbus.UInt32, dbus.Int32, dbus.UInt64, dbus.Int64)):
        return int(value)
    if isinstance(value, (dbus.String, dbus.ObjectPath)):
        return str(value)
    return repr(value)


class Request(dbus.service.Object):
    def __init__(self, bus, path):
        super().__init__(bus, path)

    @dbus.service.signal("org.freedesktop.portal.Request", signature="ua{sv}")
    def Response(self, code, results):
        pass


class Session(dbus.service.Object):
    @dbus.service.method("org.freedesktop.portal.Session", in_signature="", out_signature="")
    def Close(self):
        log("Close", {})
        self.remove_from_connection()


def log(method, arguments):
    with open(options.log, "a") as out:
        out.write(json.dumps({"method": method, "options": arguments}) + "\n")


class Portal(dbus.service.Object):
    def __init__(self, bus):
        super().__init__(bus, PATH)
        self.bus = bus
        self.starts = 0
        self.sessions = []
        self.ended = set()

    def answer(self, method, sender, request_options, results):
        token = str(request_options.get("handle_token", "t"))
        path = "%s/request/%s/%s" % (PATH, sender[1:].replace(".", "_"), token)
        request = Request(self.bus, path)
        code = 1 if options.cancel == method else 0
        if options.end_first == method and method not in self.ended:
            self.ended.add(method)
            code = 2
            if method == "CreateSession":  # the portal drops a session its backend couldn't make
                self.sessions.pop().remove_from_connection()
        # After the call's own reply, as the real portal does once the dialog is answered.
        GLib.timeout_add(20, lambda: (request.Response(dbus.UInt32(code), results if code == 0 else {}),
                                      request.remove_from_connection(), False)[-1])
        return dbus.ObjectPath(path)

    @dbus.service.method(SCREENCAST, in_signature="a{sv}", out_signature="o", sender_keyword="sender")
    def CreateSession(self, request_options, sender):
        log("CreateSession", {k: plain(v) for k, v in request_options.items()})
        handle = "%s/session/%s/%s" % (PATH, sender[1:].replace(".", "_"),
                                       str(request_options.get("session_handle_token", "s")))
        self.sessions.append(Session(self.bus, handle))
        return self.answer("CreateSession", sender, request_options,
                           {"session_handle": dbus.String(handle, variant_level=1)})

    @dbus.service.method(SCREENCAST, in_signature="oa{sv}", out_signature="o", sender_keyword="sender")
    def SelectSources(self, session, request_options, sender):
        log("SelectSources", {k: plain(v) for k, v in request_options.items()})
        return self.answer("SelectSources", sender, request_options, {})

    @dbus.service.method(SCREENCAST, in_signature="osa{sv}", out_signature="o", sender_keyword="sender")
    def Start(self, session, parent, request_options, sender):
        log("Start", {k: plain(v) for k, v in request_options.items()})
        self.starts += 1
        stream = dbus.Struct((dbus.UInt32(options.node),
                              dbus.Dictionary({"size": dbus.Struct((dbus.Int32(320), dbus.Int32(240)),
                                                                   variant_level=1),
                                               "source_type": dbus.UInt32(1, variant_level=1)},
                                              signature="sv")))
        results = {"streams": dbus.Array([stream], signature="(ua{sv})", variant_level=1),
                   "restore_token": dbus.String("token-%d" % self.starts, variant_level=1)}
        return self.answer("Start", sender, request_options, results)

    @dbus.service.method(SCREENCAST, in_signature="oa{sv}", out_signature="h")
    def OpenPipeWireRemote(self, session, request_options):
        log("OpenPipeWireRemote", {k: plain(v) for k, v in request_options.items()})
        if options.pipewire:
            connection = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
            connection.connect(options.pipewire)
            fd = connection.detach()
        else:
            fd = os.open("/dev/null", os.O_RDWR)
        handed = dbus.types.UnixFd(fd)
        os.close(fd)
        return handed

    @dbus.service.method(dbus.PROPERTIES_IFACE, in_signature="ss", out_signature="v")
    def Get(self, interface, name):
        if options.log_properties:
            log("Get", {"name": str(name)})
        values = {"AvailableSourceTypes": dbus.UInt32(1 | 2), "AvailableCursorModes": dbus.UInt32(options.cursor_modes),
                  "version": dbus.UInt32(options.version)}
        if interface != SCREENCAST or name not in values or options.no_screencast:
            raise dbus.exceptions.DBusException("no such property", name="org.freedesktop.DBus.Error.InvalidArgs")
        return values[name]


dbus.mainloop.glib.DBusGMainLoop(set_as_default=True)
session_bus = dbus.SessionBus()
portal = Portal(session_bus)
name = dbus.service.BusName(BUS, session_bus)
log("Ready", {})
GLib.MainLoop().run()
