"""What script/common does when kinds of files, applications and icons have come or gone."""

import os
import pathlib
import shutil
import subprocess

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
KIND = "application/x-ravelin-disk-shortcut"
FIRST_LINES = "# Ravelin Disk shortcut\n[Desktop Entry]\n"
PLACES = {"ravelin-disk-shortcut.xml": "mime/packages", "ravelin-disk-open.desktop": "applications",
          "ravelin-disk.svg": "icons/hicolor/scalable/apps"}


class Data:
    """A user's data folder."""

    def __init__(self, folder):
        self.path = folder / "data"
        self.path.mkdir()
        self._file = folder / "file.app"
        self._file.write_text(FIRST_LINES)
        # What is not in the PATH handles nothing.
        program = folder / "bin/ravelin-disk-open"
        program.parent.mkdir()
        program.symlink_to("/bin/true")
        self._environment = {"PATH": f"{program.parent}:{os.environ['PATH']}", "HOME": str(folder),
                             "XDG_DATA_HOME": str(self.path), "XDG_DATA_DIRS": "/usr/share"}

    def add(self):
        for name, place in PLACES.items():
            (self.path / place).mkdir(parents=True, exist_ok=True)
            shutil.copy(ROOT / "packaging/linux" / name, self.path / place)

    def remove(self):
        for name, place in PLACES.items():
            (self.path / place / name).unlink()

    def refresh(self, **environment):
        """What is said on standard error."""
        command = f". script/common; refresh_desktop_caches {self.path}"
        return subprocess.run(["/bin/bash", "-euo", "pipefail", "-c", command], cwd=ROOT, check=True,
                              env=self._environment | environment, stdout=subprocess.DEVNULL,
                              stderr=subprocess.PIPE, text=True).stderr

    def _gio(self, *arguments):
        return subprocess.run(["gio", *arguments], env=self._environment, check=False, stdout=subprocess.PIPE,
                              stderr=subprocess.DEVNULL, text=True).stdout

    def kind_of_the_file(self):
        kind = self._gio("info", "--attributes=standard::content-type", self._file)
        return kind.splitlines()[-1].split()[-1]

    def handlers(self):
        return self._gio("mime", KIND)

    def files(self):
        return sorted(str(file.relative_to(self.path)) for file in self.path.rglob("*") if not file.is_dir())


@pytest.fixture(name="data")
def _data(tmp_path):
    return Data(tmp_path)


def test_what_has_come_is_known_and_what_has_gone_is_not(data):
    assert data.kind_of_the_file() != KIND
    data.add()
    assert data.refresh() == ""
    assert data.kind_of_the_file() == KIND
    assert "ravelin-disk-open.desktop" in data.handlers()
    data.remove()
    assert data.refresh() == ""
    assert data.kind_of_the_file() != KIND
    assert "ravelin-disk-open.desktop" not in data.handlers()
    assert data.files() == []
    assert not (data.path / "mime").exists()


def test_what_others_have_added_stays(data):
    data.add()
    kind = data.path / "mime/packages/other.xml"
    kind.write_text((data.path / "mime/packages/ravelin-disk-shortcut.xml").read_text().replace(
        KIND, "application/x-others").replace("# Ravelin", "# Others'"))
    entry = data.path / "applications/other.desktop"
    entry.write_text("[Desktop Entry]\nType=Application\nName=Other\nExec=true\nMimeType=text/x-others;\n")
    data.refresh()
    data.remove()
    data.refresh()
    assert kind.exists() and entry.exists()
    assert "application/x-others" in (data.path / "mime/types").read_text()
    assert (data.path / "applications/mimeinfo.cache").read_text() == (
        "[MIME Cache]\ntext/x-others=other.desktop;\n")


def test_icons_are_looked_at_again(data):
    data.add()
    icons = data.path / "icons/hicolor"
    os.utime(icons, (0, 0))
    data.refresh()
    assert icons.stat().st_mtime > 0
    assert not (icons / "icon-theme.cache").exists()


def test_a_program_that_is_missing_is_named(data, tmp_path):
    data.add()
    tools = tmp_path / "tools"
    tools.mkdir()
    for tool in "find", "head", "touch", "uname":
        (tools / tool).symlink_to(shutil.which(tool))
    said = data.refresh(PATH=str(tools))
    assert "update-mime-database is missing" in said and "package shared-mime-info" in said
    assert "update-desktop-database is missing" in said and "package desktop-file-utils" in said
