"""What the desktop must show, in its plainest form: lists, walked from their first entry to the
last. It knows nothing of the agent but what devices and users are told."""

import dataclasses

from clock import SECOND

TICK = SECOND // 2
CHECK = 30 * SECOND
LONGEST_SILENCE = 120 * SECOND
KNOWN_OF_SENDER = 1024
KNOWN = 4096
REFUSAL = 60 * SECOND
DEFAULT_ICON = "ravelin-disk"

FIELDS = ("event", "mac", "ip", "uuid", "label")
REQUIRED = {
    "disk_mounted": ("uuid", "mac", "ip", "label"),
    "disk_status": ("uuid", "mac", "ip", "label"),
    "disk_unmounted": ("mac", "uuid"),
    "no_disk": ("mac",),
}

# The folder that lies on the desktop, for labels that lead into it.
FOLDER = "sub"

# Labels, what stands for them in a URL, and whether there can be such a shortcut where FOLDER is the
# only folder.
LABELS = {
    "One": ("One", True),
    "Two Words": ("Two%20Words", True),
    "Photos 2019": ("Photos%202019", True),
    "a+b & c": ("a+b%20&%20c", True),
    "50%": ("50%25", True),
    "%s%n": ("%25s%25n", True),
    ".hidden": (".hidden", True),
    "": ("", True),
    "sub/One": ("sub/One", True),
    "gone/One": ("gone/One", False),
    "../One": ("../One", False),
    "sub/../One": ("sub/../One", False),
    "a\0b": ("a%00b", False),
    'Quo"te': ("Quo%22te", False),
    "Back\\slash": ("Back%5Cslash", False),
}


def parsed(payload):
    """The announcement in a datagram, by its fields, or None where it has no effect."""
    try:
        text = payload.decode("ascii")
    except UnicodeDecodeError:
        return None
    event = dict.fromkeys(FIELDS)
    for item in text.split(";"):
        if ":" not in item:
            continue
        key, value = item.split(":", 1)
        if key not in event:
            return None
        event[key] = value
    needed = REQUIRED.get(event["event"])
    if needed is None or any(event[key] is None for key in needed):
        return None
    return event


def label_of(label):
    """What stands for the label in a URL, and whether it can be a shortcut's name."""
    return LABELS.get(label) or (label.replace(" ", "%20"), True)


@dataclasses.dataclass
class Shortcut:
    """A shortcut of the agent's."""
    name: str
    url: str
    icon: str = DEFAULT_ICON


@dataclasses.dataclass(eq=False)
class Thing:
    """A file of the user's."""
    content: str


@dataclasses.dataclass
class Record:
    """A disk that is known."""
    fields: dict
    sender: str
    heard: int


class Model:
    """An agent's life, and the desktop that outlives it."""

    def __init__(self):
        self.desktop = {}
        self.trash = []
        self.helper = "works"
        self.picture = None  # where there is one for the icons
        self.starts(0)

    def starts(self, monotonic):
        self.started = monotonic
        self.mounted = []
        self.waiting = []
        self._new = {}  # the disks that will be known, with who announced them
        self._refused = {}
        self._all_refused_until = 0
        self._no_pictures_until = 0

    def ends(self):
        """By SIGTERM. Events that wait are never handled."""
        for record in list(self.mounted):
            self._unmount(record)

    def arrives(self, payload, sender):
        """A datagram is read."""
        event = parsed(payload)
        if event is None or any(self._equals(other, event) for other, _ in self.waiting):
            return
        if self._becomes_known(event) and event["uuid"] not in self._new:
            of_sender = (sum(record.sender == sender for record in self.mounted)
                         + sum(by == sender for by in self._new.values()))
            if of_sender >= KNOWN_OF_SENDER or len(self.mounted) + len(self._new) >= KNOWN:
                return
            self._new[event["uuid"]] = sender
        self.waiting.append((event, sender))

    def passes(self, before, clock):
        """The time is the clock's now, and was another one before."""
        ticked = self._crossed(before, clock.monotonic, TICK)
        checked = self._crossed(before, clock.monotonic, CHECK)
        # Which of them comes first is the agent's own business.
        assert not (ticked and checked and self.waiting)
        if ticked:
            waiting, self.waiting, self._new = self.waiting, [], {}
            for event, sender in waiting:
                self._process(event, sender, clock)
        if checked:
            self._check(clock.wall)

    def _crossed(self, before, after, period):
        return (before - self.started) // period != (after - self.started) // period

    @staticmethod
    def _equals(one, other):
        """What the first one leaves open may be anything."""
        return all(one[key] is None or one[key] == other[key] for key in FIELDS)

    def _find(self, uuid):
        return next((record for record in self.mounted if record.fields["uuid"] == uuid), None)

    def _becomes_known(self, event):
        return event["event"] in ("disk_mounted", "disk_status") and not self._find(event["uuid"])

    def _process(self, event, sender, clock):
        known = self._find(event["uuid"]) if event["uuid"] is not None else None
        if event["event"] in ("disk_mounted", "disk_status"):
            if known:
                known.heard = clock.wall
                return
            self._mount(event, clock.monotonic)
            self.mounted.append(Record(event, sender, clock.wall))
        elif event["event"] == "disk_unmounted":
            if known:
                self._unmount(known)
        else:
            for record in list(self.mounted):
                if record.fields["mac"] == event["mac"]:
                    self._unmount(record)

    def _check(self, wall):
        for record in [record for record in self.mounted
                       if wall - record.heard > LONGEST_SILENCE]:
            self._unmount(record)

    def _mount(self, event, monotonic):
        label = event["label"]
        in_url, may_stand = label_of(label)
        path = f"{label}.app"
        thing = self.desktop.get(path)
        if isinstance(thing, Thing) and not self._makes_way(path, thing, monotonic):
            return
        if may_stand and '"' not in event["ip"]:
            self.desktop[path] = Shortcut(label, f"smb://guest:@{event['ip']}/{in_url}",
                                          self._icon(monotonic))
        elif isinstance(self.desktop.get(path), Shortcut):
            del self.desktop[path]

    def _unmount(self, record):
        path = f"{record.fields['label']}.app"
        if isinstance(self.desktop.get(path), Shortcut):
            del self.desktop[path]
        self.mounted.remove(record)

    def _icon(self, monotonic):
        """A helper that hangs is not asked about pictures for a minute."""
        if self.picture is None or monotonic < self._no_pictures_until:
            return DEFAULT_ICON
        if self.helper == "hangs":
            self._no_pictures_until = monotonic + REFUSAL
        return self.picture if self.helper == "works" else DEFAULT_ICON

    def _makes_way(self, path, thing, monotonic):
        """Whether the user's file has gone to the trash. What has been refused is not tried again for
        a minute."""
        if monotonic < self._all_refused_until or monotonic < self._refused.get(thing, 0):
            return False
        if self.helper == "works":
            del self.desktop[path]
            self.trash.append(thing.content)
            return True
        if self.helper == "hangs":
            self._all_refused_until = monotonic + REFUSAL
        else:
            self._refused[thing] = monotonic + REFUSAL
        return False
