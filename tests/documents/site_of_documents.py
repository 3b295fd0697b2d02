"""A folder with what documents take for granted, nodes on free ports, and commands run there.

Documents show nodes at 127.0.0.1:7440 and so on. The ports are others here, which the system chose:
those shown are replaced in commands, and those used in what commands write.
"""
import os
import re
import shlex
import shutil
import signal
import socket
import subprocess
import tempfile
import threading

PATIENCE_SECONDS = 60


class Site:
    def __init__(self, programs, examples):
        self.programs = programs
        self.folder = tempfile.mkdtemp(prefix="voltaris-documents-")
        shutil.copytree(examples, os.path.join(self.folder, "examples"))
        self.nodes = []
        self.ports = {}
        self.reserved = []
        self.exit_code = 0
        kept = {name: value for name, value in os.environ.items()
                if not name.startswith("VOLTARIS_") and name not in ("NO_COLOR", "TERM")}
        self.environment = {**kept, "HOME": self.folder, "XDG_CONFIG_HOME": self.folder + "/.config",
                            "PATH": f"{programs}:{os.environ['PATH']}"}

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for node in self.nodes:
            node.kill()
            node.wait()
            node.stdout.close()
        for unused in self.reserved:
            unused.close()
        shutil.rmtree(self.folder)

    def write_secret(self, name, content):
        path = os.path.join(self.folder, name)
        with open(os.open(path, os.O_WRONLY | os.O_CREAT, 0o600), "w", encoding="utf-8") as stream:
            stream.write(content)

    def start_node(self, words, shown_port="7440"):
        """Starts a voltaris-node, and returns what it says when it is ready."""
        command = [os.path.join(self.programs, "voltaris-node"), *words]
        if "--listen" in words:
            at = command.index("--listen") + 1
            shown_port = command[at].rsplit(":", 1)[1]
            command[at] = "127.0.0.1:0"
        else:
            command += ["--listen", "127.0.0.1:0"]
        node = subprocess.Popen(command, cwd=self.folder, env=self.environment, text=True,
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE)
        self.nodes.append(node)
        greeting = node.stdout.readline()
        match = re.search(r":(\d+)$", greeting)
        if not match:
            raise RuntimeError(f"the node did not start: {shlex.join(command)}")
        self.show_port(shown_port, match.group(1))
        return greeting.replace(":" + match.group(1), ":" + shown_port)

    def show_port(self, shown, used):
        self.ports[shown] = used
        if shown == "7440":
            self.environment["VOLTARIS_PORT"] = used

    def reserve_port(self, shown):
        """A port where nobody listens, which is held so that nobody else does either."""
        unused = socket.socket()
        self.reserved.append(unused)
        unused.bind(("127.0.0.1", 0))
        self.show_port(shown, str(unused.getsockname()[1]))

    def watch(self, command):
        """Runs a line that has no end until it has written an empty line, and ends it in order."""
        with subprocess.Popen(["bash", "-c", "exec " + command], cwd=self.folder,
                              env=self.environment, stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True) as process:
            killer = threading.Timer(PATIENCE_SECONDS, process.kill)
            killer.start()
            lines = list(iter(lambda: process.stdout.readline().strip(), ""))
            process.terminate()
            lines.append(process.stdout.read())
            killer.cancel()
        ended = process.returncode == 128 + signal.SIGTERM
        self.exit_code = 0 if ended else process.returncode or 1
        return "\n".join(lines)

    def run(self, command):
        """Runs a line in bash, and returns what it wrote to both of its outputs."""
        for shown, used in self.ports.items():
            command = re.sub(rf":{shown}\b", ":" + used, command)
        done = subprocess.run(["bash", "-c", f"(exit {self.exit_code})\n{command}"],
                              cwd=self.folder, env=self.environment, stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                              timeout=PATIENCE_SECONDS, check=False)
        self.exit_code = done.returncode
        text = done.stdout
        for shown, used in self.ports.items():
            text = re.sub(rf"\b{used}\b", shown, text)
        return text.replace(self.folder, "/home/ann")
