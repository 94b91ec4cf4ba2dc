"""What scripts/bundle-check and scripts/newcomer-check share: a minimal Debian without Qt in a folder, and a virtual display."""
import os
import pathlib
import shutil
import signal
import struct
import subprocess
import sys
import time
import zlib


def run(*words, **more):
    return subprocess.run([str(word) for word in words], check=True, **more)


def fail(text):
    sys.exit(f"{pathlib.Path(sys.argv[0]).name}: {text}")


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
