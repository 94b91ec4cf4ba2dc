"""What scripts/bundle-check, newcomer-check, realprogram-check and packages-check share: a minimal Debian without Qt in a folder,
a virtual display with windows that are operated by keyboard, a server, and a log of commands."""
import os
import pathlib
import plistlib
import pty
import re
import shutil
import signal
import struct
import subprocess
import sys
import time
import zlib


def fail(text):
    sys.exit(f"{pathlib.Path(sys.argv[0]).name}: {text}")


def run(*words, **more):
    """Runs a command. The whole check fails if it fails."""
    try:
        return subprocess.run([str(word) for word in words], check=True, **more)
    except (OSError, subprocess.SubprocessError) as error:
        fail(error)


def need(*programs):
    """Fails if the user is not root, or if one of these programs is missing."""
    if os.geteuid() != 0:
        fail("only root can make a minimal system")
    for program in programs:
        if not shutil.which(program):
            fail(f"there is no program {program}; scripts/setup long installs it")


def own_suite():
    lines = pathlib.Path("/etc/os-release").read_text().splitlines()
    return next((line.split("=", 1)[1].strip('"') for line in lines if line.startswith("VERSION_CODENAME=")), None)


def debian_sources():
    """Returns the package sources of this machine that are Debian's, each as (URL, suite, component)."""
    targets = run("apt-get", "indextargets", "--format", "$(ORIGIN) $(SITE) $(RELEASE) $(COMPONENT)", "Created-By: Packages",
                  stdout=subprocess.PIPE, text=True).stdout
    return sorted({tuple(line.split()[1:]) for line in targets.splitlines() if line.startswith("Debian ")})


def mirror():
    """Returns the URL of this machine's Debian mirror."""
    found = next((site for site, release, _ in debian_sources() if release == own_suite()), None)
    if not found:
        fail(f"apt has no package source for {own_suite()}")
    return found


class Log:
    """What the user typed and saw, in a file."""

    def __init__(self, path):
        self.path = path
        self.text = ""
        self.begun = time.monotonic()

    def add(self, text):
        self.text += text
        self.path.write_text(self.text)

    def step(self, what):
        self.add(f"\n# {(time.monotonic() - self.begun) / 60:.1f} min: {what}\n")
        print(f"{(time.monotonic() - self.begun) / 60:.1f} min: {what}", flush=True)

    def answer(self, command, folder, environment, answers):
        """Runs a command at a terminal and answers its questions."""
        self.add(f"$ {command}\n")
        process, terminal = pty.fork()
        if process == 0:
            os.chdir(folder)
            os.execvpe("sh", ["sh", "-c", command], environment)
        shown, answered = "", 0
        while True:
            try:
                part = os.read(terminal, 4096)
            except OSError:
                part = b""
            if not part:
                break
            shown += part.decode(errors="replace")
            question = next((text for text in answers if text in shown[answered:] and shown.endswith(": ")), None)
            if question:
                answered = len(shown)
                os.write(terminal, (answers[question] + "\n").encode())
        os.close(terminal)
        # Without the progress bars.
        shown = re.sub(r"\r\x1b\[K[^\r\n]*(?=\r\x1b\[K)|\r\x1b\[K", "", shown.replace("\r\n", "\n"))
        self.add(shown)
        status = os.waitstatus_to_exitcode(os.waitpid(process, 0)[1])
        if status != 0:
            fail(f"\"{command}\" ended with {status}:\n{shown}")

def make_room(folder, packages):
    """Unpacks these packages, and what they depend on, into an empty folder. What packages do when they are installed is not done."""
    archives = folder.parent / "archives"
    (archives / "partial").mkdir(parents=True)
    (folder.parent / "status").touch()
    run("apt-get", "-qq", "-y", "--no-install-recommends", "--download-only", "-o", f"Dir::State::status={folder.parent}/status",
        "-o", f"Dir::Cache::archives={archives}", "-o", "APT::Sandbox::User=root", "install", "coreutils", "dash", "libc-bin",
        "fonts-dejavu-core", *sorted(packages), stdout=subprocess.DEVNULL)
    folder.mkdir()
    for top in ("bin", "sbin", "lib", "lib64"):
        (folder / "usr" / top).mkdir(parents=True)
        (folder / top).symlink_to(f"usr/{top}")
    for archive in sorted(archives.glob("*.deb")):
        run("dpkg-deb", "--fsys-tarfile", archive, stdout=open(folder.parent / "one.tar", "wb"))
        run("tar", "-xf", folder.parent / "one.tar", "-C", folder, "--keep-directory-symlink")
    for mounted in ("proc", "dev"):  # the loader needs /proc for $ORIGIN
        (folder / mounted).mkdir(exist_ok=True)
        run("mount", "--bind", f"/{mounted}", folder / mounted)
    for name in ("opt", "tmp", "root"):
        (folder / name).mkdir(exist_ok=True)
    if list(folder.glob("usr/lib/*/libQt6*")):
        fail("the bare system is not bare: it has Qt")


class Display:
    """A virtual display whose pixels are in a file."""

    def __init__(self, folder):
        self.folder = folder
        reader, writer = os.pipe()
        self.process = subprocess.Popen(["Xvfb", "-displayfd", str(writer), "-screen", "0", "1024x768x24", "-fbdir", folder,
                                         "-nolisten", "tcp"], pass_fds=[writer], stderr=subprocess.DEVNULL)
        os.close(writer)
        self.name = ":" + os.read(reader, 16).decode().strip()

    def picture(self):
        """Rows of RGB."""
        data = (pathlib.Path(self.folder) / "Xvfb_screen0").read_bytes()
        head = struct.unpack(">25I", data[:100])
        size, width, height, row, colours = head[0], head[4], head[5], head[12], head[19]
        start = size + colours * 12
        rows = []
        for y in range(height):
            line = data[start + y * row:start + y * row + width * 4]
            rgb = bytearray(width * 3)
            rgb[0::3], rgb[1::3], rgb[2::3] = line[2::4], line[1::4], line[0::4]
            rows.append(bytes(rgb))
        return width, height, rows

    def save(self, path):
        width, height, rows = self.picture()

        def chunk(kind, content):
            return struct.pack(">I", len(content)) + kind + content + struct.pack(">I", zlib.crc32(kind + content))

        path.write_bytes(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0)) +
                         chunk(b"IDAT", zlib.compress(b"".join(b"\0" + row for row in rows))) + chunk(b"IEND", b""))

    def colours(self):
        return len({row[i:i + 3] for row in self.picture()[2][::7] for i in range(0, len(row), 21)})


def end_programs_of(folder):
    """Ends what runs from a folder: an update opens the new version."""
    for entry in pathlib.Path("/proc").iterdir():
        try:
            if entry.name.isdigit() and os.readlink(entry / "exe").startswith(str(folder) + "/"):
                os.kill(int(entry.name), signal.SIGKILL)
        except OSError:
            pass


def show(room, display, program):
    """Starts a program in the room, and returns its process when its window is drawn. Fails if it uses the machine's Qt."""
    for _ in range(40):  # until the previous window is gone
        if display.colours() <= 2:
            break
        time.sleep(0.25)
    process = subprocess.Popen(["chroot", room, "/usr/bin/env", "-i", "HOME=/root", "PATH=/usr/bin:/bin", "LANG=C.UTF-8",
                                f"DISPLAY={display.name}", "QT_QUICK_BACKEND=software", program],
                               stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    before = display.colours()
    seen = 0
    for _ in range(120):
        time.sleep(0.25)
        if process.poll() is not None:
            fail(f"{program} ended with {process.returncode}: {process.stdout.read().decode()}")
        # The window is completely drawn when the screen no longer changes.
        now = display.colours()
        if now > before + 3 and now == seen:
            break
        seen = now
    else:
        fail(f"{program} shows no window")
    maps = pathlib.Path(f"/proc/{process.pid}/maps").read_text()
    foreign = {line.split()[-1] for line in maps.splitlines() if "libQt6" in line and "/opt/" not in line}
    if foreign or "libQt6Core" not in maps:
        fail(f"{program} uses other libraries than its own: {foreign}")
    return process


def start(room, display, program, picture):
    """Starts a program in the room, saves a picture of its window, and ends it."""
    process = show(room, display, program)
    display.save(picture)
    process.kill()
    process.wait()


def remove_room(folder):
    """Ends the programs in a room and removes the folder that contains it."""
    end_programs_of(folder)
    for mounted in ("proc", "dev"):
        subprocess.run(["umount", "-l", folder / mounted], stderr=subprocess.DEVNULL)
    if not any(os.path.ismount(folder / mounted) for mounted in ("proc", "dev")):
        shutil.rmtree(folder.parent, ignore_errors=True)


def serve(txupdate, folder):
    """Starts txupdate serve for a folder. Returns its process and its URL, which ends with a slash."""
    server = subprocess.Popen([txupdate, "serve", folder, "--port", "0"], stdout=subprocess.PIPE, text=True)
    address = next((word for line in iter(server.stdout.readline, "") for word in line.split() if word.startswith("http")), None)
    if not address:
        fail(f"txupdate serve ended with {server.wait()}")
    return server, address.rstrip("/") + "/"


def manage_windows(display, folder):
    """Starts a window manager on a display, and returns its process when it is ready."""
    managed = pathlib.Path(folder) / "managed"
    manager = subprocess.Popen(
        ["openbox", "--sm-disable", "--config-file", "/etc/xdg/openbox/rc.xml", "--startup", f"touch {managed}"],
        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
        env={**os.environ, "DISPLAY": display.name, "HOME": str(folder)})
    for _ in range(240):
        if managed.exists():
            return manager
        time.sleep(0.25)
    fail("the window manager is not ready after a minute")
    return None


def press(display, before, key):
    """Presses a key, and returns what settled() returns."""
    run("xdotool", "key", "--clearmodifiers", key, env={**os.environ, "DISPLAY": display.name})
    return settled(display, before)


def settled(display, before):
    """Returns the picture of the screen when it differs from `before` and has not changed for two seconds."""
    last, equal = None, 0
    for _ in range(480):
        time.sleep(0.25)
        now = display.picture()[2]
        equal = equal + 1 if now == last else 0
        if now != before and equal >= 8:
            return now
        last = now
    fail("the screen did not change")
    return None


def build_of(bundle):
    """Returns the number of the installed build."""
    return plistlib.loads((bundle / "Contents/Info.plist").read_bytes())["CFBundleVersion"]


def processes_of(bundle):
    """Returns the processes that run an application's program, in either layout of bundles."""
    places = {f"{bundle}/Contents/{folder}" for folder in ("Linux", "bin")}
    found = set()
    for entry in pathlib.Path("/proc").iterdir():
        try:
            if entry.name.isdigit() and os.path.dirname(os.readlink(entry / "exe")) in places:
                found.add(int(entry.name))
        except OSError:
            pass
    return found


def update_through_window(display, place, build, window, pictures, ready):
    """Updates an application to `build` through its window: chooses the first item of the menu Help, which must be the one that
    checks for updates, downloads and installs by keyboard, and waits until the program runs that the update has opened. Then
    checks again. `window` is the picture of the application's window; `ready` gets the last picture before the new window
    appears, and returns a picture of that window when it can be used. Returns the new process."""
    first = processes_of(place)
    menu = press(display, window, "alt+h")
    panel = press(display, menu, "Return")
    display.save(pictures / "2-update.png")
    panel = press(display, panel, "Return")
    display.save(pictures / "3-downloaded.png")
    run("xdotool", "key", "Return", env={**os.environ, "DISPLAY": display.name})
    for _ in range(480):
        time.sleep(0.25)
        now = processes_of(place)
        if build_of(place) == build and now and not now & first:
            break
    else:
        display.save(pictures / "4-not-updated.png")
        fail(f"build {build_of(place)} is installed, and the new build does not run; see {pictures}")
    window = ready(panel)
    display.save(pictures / "4-updated.png")
    menu = press(display, window, "alt+h")
    press(display, menu, "Return")
    display.save(pictures / "5-up-to-date.png")
    return now.pop()
