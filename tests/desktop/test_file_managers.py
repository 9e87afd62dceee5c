"""A device announces its disk, and its user double-clicks the shortcut: in each file manager, with
what a package installs, on a screen of its own. What was on the screen is left in the folder of
RAVELIN_DISK_SCREENS."""

import contextlib
import os
import pathlib
import time
import urllib.parse

import pytest

# This first: it says where the others are.
from screen import PATIENCE, Picture, Screen, write_square
from agent import wait_until
from desktop import Session, SmbServer

PREFIX = pathlib.Path(os.environ["RAVELIN_DISK_PREFIX"])
SCREENS = pathlib.Path(os.environ["RAVELIN_DISK_SCREENS"])
DRAWING = PREFIX / "share/icons/hicolor/scalable/mimetypes/ravelin-disk.svg"
SERVER = "127.0.0.7"
SHARE = "USB Disk"
PORT = 5077

# The program, what has it show the folder, and its entry for folders.
FILE_MANAGERS = {
    "pcmanfm": (["pcmanfm"], "pcmanfm.desktop"),
    "thunar": (["thunar"], "thunar.desktop"),
    "caja": (["caja", "--no-desktop"], "caja-folder-handler.desktop"),
    "nemo": (["nemo"], "nemo.desktop"),
    "nautilus": (["nautilus", "--new-window"], "org.gnome.Nautilus.desktop"),
}
SIZES = (16, 22, 24, 32, 36, 48, 64, 72, 96, 128)

# A kind of files that only the share has, and the colour of its icon, which nothing else has.
PROOF = "what the device has.proof"
COLOUR = bytes((0xD4, 0x00, 0xFA))
PROOF_KIND = """<?xml version="1.0"?>
<mime-info xmlns="http://www.freedesktop.org/standards/shared-mime-info">
<mime-type type="application/x-proof"><comment>proof</comment><glob pattern="*.proof"/>
<icon name="proof"/><generic-icon name="proof"/></mime-type></mime-info>
"""
PROOF_ICON = """<svg xmlns="http://www.w3.org/2000/svg" width="64" height="64">
<rect width="64" height="64" fill="#d400fa"/></svg>
"""


class Desktop(contextlib.AbstractContextManager):
    """The session of a user who has one of the file managers, a device with a disk, and the agent."""

    def __init__(self, name):
        self._command, entry = FILE_MANAGERS[name]
        self._closing = contextlib.ExitStack()
        self.session = self._closing.enter_context(Session())
        self._configure(entry)
        self.server = self._closing.enter_context(SmbServer(self.session, SERVER, guests=[SHARE]))
        (self.server.share(SHARE) / PROOF).write_text("This is the proof.\n")
        self.screen = self._closing.enter_context(Screen(self.session))
        self.session.start("ravelin-disk-agent")

    def __exit__(self, *_):
        self._closing.close()

    def _configure(self, entry):
        environment = self.session.environment
        environment["PATH"] = f"{PREFIX}/bin:{environment['PATH']}"
        # Without what an administrator of this computer may have configured.
        environment["XDG_DATA_DIRS"] = f"{PREFIX}/share:/usr/share"
        environment |= {"GDK_BACKEND": "x11", "GSK_RENDERER": "cairo", "GSETTINGS_BACKEND": "memory",
                        "NO_AT_BRIDGE": "1"}
        # What has been started by the bus, too.
        self.session.run("dbus-update-activation-environment", "PATH", "XDG_DATA_DIRS")
        files = {
            ".local/share/mime/packages/proof.xml": PROOF_KIND,
            ".local/share/icons/hicolor/scalable/mimetypes/proof.svg": PROOF_ICON,
            ".config/mimeapps.list": f"[Default Applications]\ninode/directory={entry}\n",
            ".config/gtk-3.0/settings.ini": "[Settings]\ngtk-icon-theme-name=Adwaita\n",
            ".gtkrc-2.0": 'gtk-icon-theme-name = "Adwaita"\n',
        }
        for name, content in files.items():
            path = self.session.home / name
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(content)
        status, _, errors = self.session.run(
            "update-mime-database", self.session.home / ".local/share/mime")
        assert status == 0, errors

    def announce(self, event="mounted"):
        """As the device does, until the shortcut is there, or is gone."""
        shortcut = self.session.desktop / f"{SHARE}.app"

        def is_done():
            status, _, errors = self.session.run(
                "ravelin-disk-announce", event, "127.0.0.1", PORT, "--ip", SERVER, "--label", SHARE)
            assert status == 0, errors
            return shortcut.exists() == (event == "mounted")

        wait_until(is_done, f"the shortcut after {event}", PATIENCE, 0.3)

    def show_desktop_folder(self):
        self.session.start(*self._command, self.session.desktop)


def place_of_the_icon(picture):
    """Where the product's icon is in the picture, in one of the sizes that file managers have."""
    for size in reversed(SIZES):
        place = picture.find(Picture(DRAWING, size))
        if place:
            return place
    return None


@pytest.mark.parametrize("name", FILE_MANAGERS)
def test_a_double_click_shows_the_files_of_the_device(name):
    with Desktop(name) as desktop:
        screen = desktop.screen
        desktop.announce()
        desktop.show_desktop_folder()
        screen.move_away()
        place = screen.wait_for(place_of_the_icon, SCREENS / f"{name}-shortcut.png",
                                "the product's icon")
        assert screen.picture(SCREENS / f"{name}-shortcut.png").count(COLOUR) == 0
        screen.double_click(place)
        screen.wait_for(lambda picture: picture.count(COLOUR) >= 150, SCREENS / f"{name}-share.png",
                        "a file of the share")
        time.sleep(1)  # for what would come up late
        windows = screen.windows()
        assert {kind for _, kind in windows.values()} == {"NORMAL"}, windows
        assert any(SHARE.lower() in urllib.parse.unquote(title).lower()
                   for title, _ in windows.values()), windows


@pytest.mark.parametrize("name", ["caja", "nemo"])
def test_a_picture_is_shown_for_as_long_as_it_is_there(name):
    """By those that show the icons of single files."""
    with Desktop(name) as desktop:
        screen = desktop.screen
        picture = desktop.session.home / ".local/share/RavelinDisk/icon.ico"
        picture.parent.mkdir()
        write_square(picture, COLOUR)
        desktop.announce()
        desktop.show_desktop_folder()
        screen.move_away()
        screen.wait_for(lambda seen: seen.count(COLOUR) >= 150, SCREENS / f"{name}-picture.png",
                        "the picture")
        picture.unlink()
        desktop.announce("unmounted")
        desktop.announce()
        time.sleep(1)
        # caja may miss what happens to a file while it looks at it for the first time.
        screen.press("F5")
        screen.wait_for(place_of_the_icon, SCREENS / f"{name}-no-picture.png", "the product's icon")
        assert screen.picture(SCREENS / f"{name}-no-picture.png").count(COLOUR) == 0
