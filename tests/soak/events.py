"""What devices, strangers, users, the network and the system do, picked by a seeded generator."""

import signal

from agent import message
from cables import COMPUTER, DEVICES, HOSTILE
from clock import MILLISECOND, SECOND
from model import CHECK, KNOWN_OF_SENDER, LABELS, TICK, Shortcut, Thing
from namespaces import PORT

ORDINARY_LABELS = ["One", "Two Words", "Photos 2019", "USB Disk", "Backup", "50%", "sub/One"]

# Some more disks than one sender may have.
FLOOD = KNOWN_OF_SENDER + 80


class Device:
    """A device with its disks; it repeats its announcements while it is on."""

    def __init__(self, number):
        self.number = number
        self.mac = f"02:00:00:00:00:{number:02x}"
        self.host = DEVICES[number]
        self.cable = None
        self.ip = None
        self.disks = {}  # labels by uuids
        self.is_on = False

    def says(self, event, uuid, label):
        return message(event, mac=self.mac, ip=self.ip, uuid=uuid, label=label)


class Events:
    """All that can happen in a trial. Everything is decided by the generator alone."""

    DEVICES = 16

    def __init__(self, trial, generator):
        self._trial = trial
        self._random = generator
        self._devices = [Device(number) for number in range(self.DEVICES)]
        self._made = 0
        self._kinds = {
            self.time_passes: 30, self.a_device_comes: 14, self.a_disk_is_taken_out: 6,
            self.a_device_has_no_disk: 4, self.a_device_falls_silent: 4,
            self.a_device_gets_another_address: 4, self.a_device_repeats_itself: 4,
            self.a_stranger_lies: 8, self.junk_comes: 3, self.many_disks_are_announced: 0.7,
            self.more_comes_than_can_be_read: 0.5, self.a_shortcut_is_deleted: 5,
            self.a_file_is_made: 5, self.a_shortcut_is_replaced: 3, self.a_shortcut_is_edited: 2,
            self.the_user_tidies_up: 2, self.a_link_goes_down_or_up: 2,
            self.an_address_goes_or_comes: 3, self.a_cable_is_replugged: 0.5,
            self.the_helper_changes: 3, self.a_hanging_helper_is_asked: 1,
            self.a_log_service_changes: 4,
            self.a_picture_is_there_for_a_while: 1, self.the_agent_is_paused: 4,
            self.the_wall_clock_is_set: 3, self.the_night_comes: 2,
        }

    def next(self):
        kind = self._random.choices([*self._kinds], [*self._kinds.values()])[0]
        self._trial.note(kind.__name__.replace("_", " "))
        kind()
        self._trial.count[kind.__name__] += 1

    def each(self):
        """Everything once, and most of what grows, so that what takes memory for good has taken it."""
        for kind in self._kinds:
            self._trial.note(kind.__name__.replace("_", " "))
            kind()
        self._put_in_order(self._trial.cables[0])
        self._flood(self._trial.cables[0], FLOOD)

    def calm(self):
        """The devices fall silent, and the agent forgets their disks."""
        for device in self._devices:
            device.is_on = False
        for _ in range(6):
            self._trial.to_next(CHECK)

    def _be_ready(self):
        self._trial.be_ready(self._random.choice([PORT, PORT, PORT + 1]))

    # Devices

    def _some_on(self):
        on = [device for device in self._devices if device.is_on]
        return self._random.choice(on) if on else None

    def _say(self, device, event, uuid=None, label=None):
        self._trial.say(device.cable, device.host, device.says(event, uuid, label),
                        self._random.random() < 0.8)

    def a_device_comes(self):
        off = [device for device in self._devices if not device.is_on]
        if not off:
            return
        device = self._random.choice(off)
        device.is_on = True
        device.cable = self._random.choice(self._trial.cables)
        device.ip = f"192.0.2.{self._random.randrange(1, 255)}"
        labels = ORDINARY_LABELS if self._random.random() < 0.8 else [*LABELS]
        device.disks = {f"{device.number}-{disk}": self._random.choice(labels)
                        for disk in range(self._random.randrange(1, 4))}
        self._be_ready()
        for uuid, label in device.disks.items():
            self._say(device, self._random.choice(["disk_mounted", "disk_status"]), uuid, label)
        self._trial.handle()

    def a_disk_is_taken_out(self):
        device = self._some_on()
        if device is None:
            return
        uuid = self._random.choice([*device.disks])
        self._be_ready()
        # The label may be another one, or be left out.
        self._say(device, "disk_unmounted", uuid, self._random.choice([None, device.disks[uuid], "x"]))
        self._trial.handle()
        del device.disks[uuid]
        device.is_on = bool(device.disks)

    def a_device_has_no_disk(self):
        device = self._some_on()
        if device is None:
            return
        self._be_ready()
        self._say(device, "no_disk")
        self._trial.handle()
        device.is_on = False

    def a_device_falls_silent(self):
        device = self._some_on()
        if device is not None:
            device.is_on = False

    def a_device_gets_another_address(self):
        device = self._some_on()
        if device is None:
            return
        device.ip = f"198.51.100.{self._random.randrange(1, 255)}"
        device.host = self._random.choice(DEVICES[self.DEVICES:])
        if self._random.random() < 0.5:
            device.disks = {uuid: self._random.choice(ORDINARY_LABELS) for uuid in device.disks}
        self._repeat([device])

    def a_device_repeats_itself(self):
        device = self._some_on()
        if device is None:
            return
        self._be_ready()
        for _ in range(self._random.randrange(1, 50)):
            for uuid, label in device.disks.items():
                self._say(device, self._random.choice(["disk_mounted", "disk_status"]), uuid, label)
        self._trial.handle()

    def _repeat(self, devices):
        self._be_ready()
        for device in devices:
            for uuid, label in device.disks.items():
                self._say(device, "disk_status", uuid, label)
        self._trial.handle()

    # Time

    def time_passes(self):
        for _ in range(self._random.randrange(1, 10)):
            self._trial.pass_time(10 * MILLISECOND * self._random.randrange(1, 2500))
            self._repeat([device for device in self._devices
                          if device.is_on and self._random.random() < 0.6])
            late = self._random.choice([0, 0, TICK, 7 * SECOND,
                                        10 * MILLISECOND * self._random.randrange(100)])
            self._trial.to_next(CHECK, late)

    def the_night_comes(self):
        """Devices go on or not, and the computer is awake or not."""
        hours = self._random.randrange(1, 12)
        if self._random.random() < 0.3:
            self._trial.clock.set_wall(hours * 3600 * SECOND)
            self._trial.to_next(CHECK)
        elif self._random.random() < 0.5:
            self._trial.pass_time(hours * 3600 * SECOND)
        else:
            for _ in range(hours * 6):
                self._repeat([device for device in self._devices if device.is_on])
                self._trial.pass_time(100 * SECOND)
                self._trial.to_next(CHECK)

    def the_wall_clock_is_set(self):
        self._trial.clock.set_wall(
            10 * MILLISECOND * self._random.choice([1, 100, 3000, 9000, 360000, -100, -6000, -360000]))
        self._trial.to_next(CHECK)

    # Strangers

    def a_stranger_lies(self):
        """Announcements about other devices' disks, and such as are odd."""
        device = self._some_on()
        if device is None:
            return
        uuid = self._random.choice([*device.disks])
        label = self._random.choice([*LABELS])
        lie = self._random.choice([
            message("disk_mounted", ip="203.0.113.1", uuid=uuid, label=label),
            message("disk_status", mac=device.mac, uuid=f"{uuid}-too", label=device.disks[uuid]),
            message("disk_status", uuid=f"odd {label}", label=label),
            message("disk_status", ip='1"2', uuid="quoted", label=device.disks[uuid]),
            message("disk_unmounted", mac="", ip=None, uuid=uuid, label=None),
            message("disk_unmounted", uuid="nobody's", label=device.disks[uuid]),
            message("no_disk", mac=device.mac, ip=None, uuid=None, label=None),
            message("no_disk", mac="nobody's", uuid=uuid),
            message("no_disk", mac=device.mac.upper() + " "),
        ])
        self._be_ready()
        self._trial.say(device.cable, HOSTILE, lie)
        if self._random.random() < 0.5:
            self._repeat([device])
        else:
            self._trial.handle()

    def junk_comes(self):
        device = self._some_on() or self._devices[0]
        cable = self._random.choice(self._trial.cables)
        good = message("disk_unmounted", mac=device.mac, uuid=next(iter(device.disks), "x"))
        self._be_ready()
        for _ in range(self._random.randrange(1, 200)):
            junk = self._random.choice([
                f"{good};size:5", f" {good}", good.replace("event", "Event"), f"{good}\xe9",
                good.replace("unmounted", "status").replace("ip:", "ip"), ";" * 1000, "event",
                "event:disk_mounted;mac:a;ip:b;uuid:c", "event:disk_mounted;;;:", "event:no_disk",
                self._random.randbytes(self._random.randrange(1, 300)),
            ])
            self._trial.say(cable, HOSTILE, junk)
        self._trial.handle()

    def many_disks_are_announced(self):
        """By one sender, sometimes more than it may have."""
        cable = self._random.choice(self._trial.cables)
        self._flood(cable, self._random.choice([*[FLOOD // 10] * 9, FLOOD]))
        if self._random.random() < 0.7:
            self._be_ready()
            self._trial.say(cable, HOSTILE, message("no_disk", mac="flood"))
            self._trial.handle()

    def _flood(self, cable, count):
        self._made += 1
        self._be_ready()
        for number in range(count):
            self._trial.say(cable, HOSTILE, message(
                "disk_status", mac="flood", uuid=f"flood {self._made} {number}",
                label=f"Flood {number}"))
        self._trial.handle()

    def more_comes_than_can_be_read(self):
        """What is lost does not matter, as it has no effect."""
        trial = self._trial
        trial.settle()
        cable = self._random.choice(trial.cables)
        trial.overflow(cable, HOSTILE, b"event:disk_mounted;size:" + b"5" * 400, 5000)
        for _ in range(6):
            trial.to_next(TICK)

    # The user

    def _shortcuts(self):
        return [path for path, item in self._trial.model.desktop.items()
                if isinstance(item, Shortcut)]

    def _path(self, path):
        return self._trial.home.desktop / path

    def _own_file(self, path):
        self._made += 1
        thing = Thing(f"Mine, number {self._made}\n")
        self._path(path).unlink(missing_ok=True)
        self._path(path).write_text(thing.content, encoding="latin-1")
        self._trial.model.desktop[path] = thing

    def a_shortcut_is_deleted(self):
        if shortcuts := self._shortcuts():
            path = self._random.choice(shortcuts)
            self._path(path).unlink()
            del self._trial.model.desktop[path]

    def a_shortcut_is_replaced(self):
        if shortcuts := self._shortcuts():
            self._own_file(self._random.choice(shortcuts))

    def a_shortcut_is_edited(self):
        if shortcuts := self._shortcuts():
            path = self._random.choice(shortcuts)
            with self._path(path).open("a", encoding="latin-1") as file:
                file.write("Comment=Mine\n")

    def a_file_is_made(self):
        label = self._random.choice([*ORDINARY_LABELS, "Letter", "Notes"])
        path = f"{label}.app" if self._random.random() < 0.8 else f"{label}.txt"
        if path not in self._trial.model.desktop:
            self._own_file(path)

    def the_user_tidies_up(self):
        for path, item in [*self._trial.model.desktop.items()]:
            if isinstance(item, Thing):
                self._path(path).unlink()
                del self._trial.model.desktop[path]
        self._trial.compare_trash()
        if self._trial.model.trash:
            self._trial.empty_trash()
            self._trial.model.trash.clear()

    # The network

    def _put_in_order(self, cable):
        self._trial.settle()
        if not cable.is_up:
            cable.set_up(True)
        if cable.host is None:
            cable.assign(COMPUTER[0])
        self._trial.settle()

    def a_link_goes_down_or_up(self):
        self._trial.settle()
        cable = self._random.choice(self._trial.cables)
        cable.set_up(not cable.is_up)
        self._trial.settle()

    def an_address_goes_or_comes(self):
        self._trial.settle()
        cable = self._random.choice(self._trial.cables)
        if cable.host is None:
            cable.assign(self._random.choice(COMPUTER))
        else:
            cable.withdraw()
            if self._random.random() < 0.5:
                cable.assign(self._random.choice(COMPUTER))
        self._trial.settle()

    def a_cable_is_replugged(self):
        self._trial.settle()
        cable = self._random.choice(self._trial.cables)
        sees_it_at_once = self._random.random() < 0.5
        if not sees_it_at_once:
            self._trial.pause_agent()
        cable.unplug()
        if sees_it_at_once:
            self._trial.settle()
        cable.plug()
        if not sees_it_at_once:
            self._trial.continue_agent()
        self._trial.settle()

    # The system

    def the_helper_changes(self):
        mode = self._random.choice(["works", "works", "fails", "crashes", "cannot be run"])
        self._trial.set_helper(mode)
        self._trial.model.helper = mode

    def a_hanging_helper_is_asked(self):
        """By a disk whose shortcut's place is taken by the user's file."""
        trial = self._trial
        before = trial.model.helper
        trial.be_far_from_check()
        if "Hang.app" not in trial.model.desktop:
            self._own_file("Hang.app")
        trial.set_helper("hangs")
        trial.model.helper = "hangs"
        trial.say(self._random.choice(trial.cables), HOSTILE,
                  message("disk_status", mac="hang", uuid=f"hang {self._made}", label="Hang"))
        trial.handle_while_helper_hangs()
        trial.set_helper(before)
        trial.model.helper = before

    def a_picture_is_there_for_a_while(self):
        """And a disk comes meanwhile."""
        trial = self._trial
        if isinstance(trial.model.desktop.get("Iconic.app"), Thing):
            return
        before = trial.model.helper
        trial.be_far_from_check()
        mode = self._random.choice(["works", "works", "fails", "crashes", "cannot be run", "hangs"])
        trial.set_helper(mode)
        trial.model.helper = mode
        picture = trial.put_picture()
        trial.model.picture = str(picture)
        self._made += 1
        trial.say(self._random.choice(trial.cables), HOSTILE,
                  message("disk_mounted", mac="iconic", uuid=f"iconic {self._made}",
                          label="Iconic"))
        if mode == "hangs":
            trial.handle_while_helper_hangs()
        else:
            trial.handle()
        picture.unlink()
        trial.model.picture = None
        trial.set_helper(before)
        trial.model.helper = before

    def a_log_service_changes(self):
        service = self._random.choice(self._trial.logs)
        change = self._random.choice(["start", "stop", "read", "stall", "stall"])
        if change == "start":
            service.start()
        elif change == "stop":
            service.stop()
        else:
            service.reads = change == "read"

    def the_agent_is_paused(self):
        """Things happen meanwhile, or time passes, or it is in the middle of something."""
        trial = self._trial
        trial.settle()
        self._be_ready()
        if self._random.random() < 0.3:
            self._say_all()
            trial.pause_agent()
            trial.continue_agent()
            trial.handle()
            return
        trial.pause_agent()
        if self._random.random() < 0.5:
            before = trial.clock.monotonic
            trial.clock.step(10 * MILLISECOND * self._random.choice([10, 1000, 20000, 1000000]))
            trial.continue_agent()
            trial.clock.settle()
            trial.model.passes(before, trial.clock)
            trial.compare()
            return
        self._say_all()
        self.a_shortcut_is_deleted()
        trial.continue_agent()
        trial.handle()

    def _say_all(self):
        """On one cable: what is paused hears nobody before the next."""
        cable = self._random.choice(self._trial.cables)
        for device in self._devices:
            if device.is_on and device.cable is cable:
                for uuid, label in device.disks.items():
                    self._say(device, "disk_status", uuid, label)

    def end_of_life(self):
        return self._random.choice([signal.SIGTERM, signal.SIGTERM, signal.SIGKILL])
