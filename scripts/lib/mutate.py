"""Applies one-token changes to the library's sources, one at a time, and counts those that no test
notices. scripts/mutate says how it is called.

A change is chosen by a digest of the seed, the source line and the change itself, so that an edit
elsewhere leaves the choice as it was, and a report of earlier results can be continued.
"""
import argparse
import collections
import hashlib
import json
import os
import queue
import re
import resource
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time

FOLDERS = ("support", "codec", "protocol", "transport", "filter", "api")
PASSING_SCORE = 95
# A mutant that takes all memory must not take the machine's.
MEMORY_LIMIT = 4 << 30
FILE_LIMIT = 1 << 30

# The kinds of change, with the share of each among those that are tried.
KINDS = {
    "comparison": 20,
    "constant": 20,
    "dropped statement": 18,
    "negated condition": 12,
    "arithmetic": 12,
    "logical": 8,
    "swapped arguments": 6,
    "sign": 4,
}

TOKEN = re.compile(
    r"""
    (?P<comment>//[^\n]*|/\*.*?\*/)
  | (?P<directive>^[ \t]*\#(?:\\\n|[^\n])*)
  | (?P<string>(?:u8|[uUL])?"(?:[^"\\\n]|\\.)*")
  | (?P<character>'(?:[^'\\\n]|\\.)+')
  | (?P<number>(?:0[xX][0-9a-fA-F']+|[0-9][0-9']*)[uUlLzZ]*)
  | (?P<name>[A-Za-z_]\w*)
  | (?P<punctuator><=>|<<=|>>=|->\*|\.\.\.|::|->|\+\+|--|<<|>>|<=|>=|==|!=|&&|\|\||[-+*/%&|^]=
      |[-+*/%&|^~!<>=?:;,.(){}\[\]])
  | (?P<space>\s+)
    """,
    re.VERBOSE | re.DOTALL | re.MULTILINE,
)

COMPARISONS = {
    "==": ("!=",),
    "!=": ("==",),
    "<": ("<=", ">", ">="),
    "<=": ("<", ">", ">="),
    ">": (">=", "<", "<="),
    ">=": (">", "<", "<="),
}
LOGICAL = {"&&": ("||",), "||": ("&&",)}
ARITHMETIC = {
    "+": ("-",),
    "-": ("+",),
    "*": ("+", "/"),
    "/": ("*",),
    "%": ("/", "*"),
    "&": ("|",),
    "|": ("&",),
    "^": ("|", "&"),
    "<<": (">>",),
    ">>": ("<<",),
    "+=": ("-=",),
    "-=": ("+=",),
    "|=": ("&=", "^="),
    "&=": ("|=",),
    "^=": ("|=",),
    "<<=": (">>=",),
    ">>=": ("<<=",),
    "++": ("--",),
    "--": ("++",),
}
CONTROL = {"if", "for", "while", "switch"}
NOT_A_PLAIN_STATEMENT = {
    "if", "for", "while", "switch", "do", "else", "case", "default", "using", "static_assert",
    "const", "constexpr", "static", "struct", "enum", "class", "template", "typedef", "public",
    "private", "goto", "try", "auto",
}  # fmt: skip
DECLARATION = re.compile(r"[\w:]+(?:<[^;=()]*>)?[*&]*\s+[*&]?\w+")
OPENING = {"(": ")", "[": "]", "{": "}"}
CLOSING = set(OPENING.values())

Token = collections.namedtuple("Token", "kind text start end")


class Mutant:
    """One change: the text from start to end of a file is replaced."""

    def __init__(self, file, source, kind, start, end, new):
        self.file = file
        self.kind = kind
        self.start = start
        self.end = end
        self.old = source[start:end]
        # The lines that follow keep their numbers.
        self.new = new + "\n" * (self.old.count("\n") - new.count("\n"))
        self.line = source.count("\n", 0, start) + 1
        line_start = source.rfind("\n", 0, start) + 1
        line_end = source.find("\n", start)
        self.column = start - line_start + 1
        self.text = source[line_start:line_end].strip()
        self.change = f"{one_line(self.old)} -> {one_line(self.new)}"
        self.identity = None

    def place(self):
        return f"{self.file}:{self.line}:{self.column}"


def one_line(text):
    return " ".join(text.split())


def tokenize(source):
    tokens = []
    position = 0
    while position < len(source):
        match = TOKEN.match(source, position)
        if not match:
            raise ValueError(f"no token at {source[position:position + 40]!r}")
        tokens.append(Token(match.lastgroup, match.group(), match.start(), match.end()))
        position = match.end()
    return [t for t in tokens if t.kind not in ("comment", "directive", "space")]


class Source:
    """Finds the places of one source file where something can be changed."""

    def __init__(self, file, text):
        self.file = file
        self.text = text
        self.tokens = tokenize(text)
        self.partner = self._match_brackets()
        self.excluded = self._excluded()
        self.context = self._contexts()
        self.mutants = []

    def _match_brackets(self):
        partner = {}
        stack = []
        for i, token in enumerate(self.tokens):
            if token.text in OPENING:
                stack.append(i)
            elif token.text in CLOSING:
                partner[i] = stack.pop()
                partner[partner[i]] = i
        return partner

    def _excluded(self):
        """Indices of what the compiler alone looks at."""
        excluded = set()
        for i, token in enumerate(self.tokens):
            if token.text in ("static_assert", "__attribute__"):
                excluded.update(range(i, self.partner[i + 1] + 1))
            elif token.text == "using":
                j = i
                while self.tokens[j].text != ";":
                    j += 1
                excluded.update(range(i, j))
        return excluded

    def _contexts(self):
        """For each token the innermost braces around it: function, block, or None outside code."""
        contexts = []
        stack = [None]
        head = 0
        for i, token in enumerate(self.tokens):
            if token.text == "}":
                stack.pop()
                head = i + 1
            contexts.append(stack[-1])
            if token.text == "{":
                stack.append(self._brace_kind(i, head, stack[-1]))
                head = i + 1
            elif token.text == ";":
                head = i + 1
        return contexts

    def _brace_kind(self, i, head, outer):
        before = self.tokens[i - 1].text if i > 0 else ""
        if {t.text for t in self.tokens[head:i]} & {"struct", "class", "enum", "union", "namespace",
                                                    "extern"}:
            return None
        if before == ")":
            opened = self.partner[i - 1]
            control = opened > 0 and self.tokens[opened - 1].text in CONTROL
            return "block" if control else "function"
        if before in ("else", "do"):
            return "block"
        if before in ("const", "noexcept", "override", "mutable"):
            return "function"
        if outer and before in (";", "}", "{", ":"):
            return "block"
        return None

    def collect(self):
        for i, token in enumerate(self.tokens):
            if i in self.excluded:
                continue
            self._operator(i, token)
            self._constant(i, token)
            if self.context[i]:
                self._condition(i, token)
                self._arguments(i, token)
                self._statement(i)
        return self.mutants

    def _add(self, kind, start, end, new):
        self.mutants.append(Mutant(self.file, self.text, kind, start, end, new))

    def _replace(self, kind, token, alternatives):
        for new in alternatives:
            self._add(kind, token.start, token.end, new)

    def _operator(self, i, token):
        if token.kind != "punctuator":
            return
        spaced = self.text[token.start - 1].isspace() and self.text[token.end].isspace()
        if token.text in ("++", "--"):
            self._replace("arithmetic", token, ARITHMETIC[token.text])
        elif not spaced:
            # The formatter keeps a sign at its operand; angle brackets, pointers and references
            # have no space on one side either.
            before = self.tokens[i - 1]
            if token.text == "-" and (before.text in "(,=?:<[{&|+*/" or before.text == "return" or
                                      self.text[token.start - 1].isspace()):
                self._add("sign", token.start, token.end, "")
        elif token.text in COMPARISONS:
            self._replace("comparison", token, COMPARISONS[token.text])
        elif token.text in LOGICAL:
            self._replace("logical", token, LOGICAL[token.text])
        elif token.text in ARITHMETIC:
            self._replace("arithmetic", token, ARITHMETIC[token.text])

    def _constant(self, i, token):
        if token.kind == "number":
            digits = token.text.rstrip("uUlLzZ")
            suffix = token.text[len(digits):]
            value = int(digits.replace("'", ""), 16 if digits[:2] in ("0x", "0X") else 10)
            values = [value + 1] + ([value - 1] if value > 0 else []) + ([0] if value > 1 else [])
            shape = "0x{:x}" if digits[:2] in ("0x", "0X") else "{}"
            self._replace("constant", token, [shape.format(v) + suffix for v in values])
        elif token.text in ("true", "false"):
            self._replace("constant", token, ["false" if token.text == "true" else "true"])
        elif token.kind == "character":
            new = "'\\1'" if token.text == "'\\0'" else "'\\0'"
            self._replace("constant", token, [new])

    def _condition(self, i, token):
        if token.text not in ("if", "while") or self.tokens[i + 1].text != "(":
            return
        start = i + 2
        end = self.partner[i + 1]
        depth = 0
        for j in range(start, end):
            text = self.tokens[j].text
            depth += (text in OPENING) - (text in CLOSING)
            if depth == 0 and text == ";":
                start = j + 1
        if any(t.text == "=" for t in self.tokens[start:end]):
            return  # it declares what it asks
        first, last = self.tokens[start].start, self.tokens[end - 1].end
        self._add("negated condition", first, last, f"!({self.text[first:last]})")

    def _arguments(self, i, token):
        if token.kind != "name" or token.text in CONTROL or token.text.startswith("VT_LOG"):
            return
        if i + 1 >= len(self.tokens) or self.tokens[i + 1].text != "(":
            return
        end = self.partner[i + 1]
        arguments = []
        start = j = i + 2
        while j <= end:
            if j == end or self.tokens[j].text == ",":
                if j > start:
                    arguments.append((self.tokens[start].start, self.tokens[j - 1].end))
                start = j + 1
            elif self.tokens[j].text in OPENING:
                j = self.partner[j]
            j += 1
        for (a, b), (c, d) in zip(arguments, arguments[1:]):
            first, second = self.text[a:b], self.text[c:d]
            if first != second:
                self._add("swapped arguments", a, d, second + self.text[b:c] + first)

    def _statement(self, i):
        before = self.tokens[i - 1]
        guarded = before.text in ("else", "do")
        if before.text == ")":
            guarded = self.tokens[self.partner[i - 1] - 1].text in CONTROL
        if not guarded and before.text not in (";", "{", "}"):
            return
        token = self.tokens[i]
        if token.text in NOT_A_PLAIN_STATEMENT or token.text in "{};)":
            return
        j = i
        while self.tokens[j].text != ";":
            if self.tokens[j].text in OPENING:
                j = self.partner[j]
            elif self.tokens[j].text in CLOSING:
                return
            j += 1
        end = self.tokens[j].end
        if any(self.context[k] is None for k in range(i, j)):
            return
        text = self.text[token.start:end]
        if token.text == "return":
            # Running off the end of a function is no change but chance.
            at_end = not guarded and self.context[i] == "function" and j + 1 < len(self.tokens)
            if at_end and self.tokens[j + 1].text == "}" and text != "return;":
                return
        elif DECLARATION.match(text):
            return
        elif self._inside_parentheses(i):
            return
        self._add("dropped statement", token.start, end, ";")

    def _inside_parentheses(self, i):
        """True in the head of a for, whose semicolons end no statements."""
        depth = 0
        for j in range(i - 1, -1, -1):
            text = self.tokens[j].text
            if text in "{}":
                return False
            depth += (text in OPENING) - (text in CLOSING)
            if depth > 0:
                return True
        return False


def all_mutants(root, files, seed):
    mutants = []
    for file in files:
        with open(os.path.join(root, file), encoding="utf-8") as stream:
            found = Source(file, stream.read()).collect()
        seen = collections.Counter()
        for mutant in found:
            key = "\0".join((file, mutant.text, mutant.kind, mutant.change))
            # Equal changes of equal lines are told apart by their order.
            mutant.identity = hashlib.sha1(f"{key}\0{seen[key]}".encode()).hexdigest()
            seen[key] += 1
            mutant.rank = hashlib.sha1(f"{seed}\0{mutant.identity}".encode()).hexdigest()
        mutants += found
    return mutants


def choose(mutants, count):
    by_kind = {kind: [] for kind in KINDS}
    for mutant in sorted(mutants, key=lambda m: m.rank):
        by_kind[mutant.kind].append(mutant)
    chosen = []
    total = sum(KINDS.values())
    for kind, share in KINDS.items():
        quota = count * share // total
        chosen += by_kind[kind][:quota]
        del by_kind[kind][:quota]
    # What rounding and rare kinds have left open.
    rest = sorted((m for left in by_kind.values() for m in left), key=lambda m: m.rank)
    chosen += rest[:max(0, count - len(chosen))]
    # File by file: the objects of the one before need compiling only once.
    return sorted(chosen, key=lambda m: (m.file, m.start, m.new))


class BuildError(Exception):
    pass


class Tree:
    """A copy of the tree, in which mutants are built and tested."""

    def __init__(self, root, folder, compilers):
        self.root = root
        self.folder = folder
        self.compilers = compilers
        self.builds = {}

    def fill(self):
        listed = subprocess.run(["git", "-C", self.root, "ls-files", "-z"], check=True,
                                capture_output=True).stdout.decode()
        for name in filter(None, listed.split("\0")):
            source, target = os.path.join(self.root, name), os.path.join(self.folder, name)
            # An equal file keeps its time, and what was made of it stays.
            if os.path.isfile(source) and read(source) != read(target):
                os.makedirs(os.path.dirname(target), exist_ok=True)
                shutil.copy(source, target)
        sysroot = os.path.join(self.root, "build/i386-sysroot")
        link = os.path.join(self.folder, "build/i386-sysroot")
        if os.path.isdir(sysroot) and not os.path.lexists(link):
            os.makedirs(os.path.dirname(link), exist_ok=True)
            os.symlink(sysroot, link)

    def build(self, preset):
        if preset not in self.builds:
            made = Build(self, preset, self.compilers)
            made.prepare()
            self.builds[preset] = made
        return self.builds[preset]


def read(name):
    try:
        with open(name, "rb") as stream:
            return stream.read()
    except FileNotFoundError:
        return None


class Check:
    """A program of the suite: all tests of one GoogleTest program, or the command of one test."""

    def __init__(self, name, command, folder, environment, target):
        self.name = name
        self.command = command
        self.folder = folder
        self.environment = environment
        self.target = target
        self.seconds = 0.0


class Build:
    """One preset, built in a copy of the tree."""

    def __init__(self, tree, preset, compilers):
        self.tree = tree
        self.preset = preset
        self.compilers = compilers
        self.folder = os.path.join(tree.folder, "build", preset)
        self.library = os.path.join(self.folder, "libvtapi.so.0")
        self.clean_code = None
        self.checks = []

    def prepare(self):
        """Builds everything and runs each test once, which must pass, to know its time."""
        made = subprocess.run(["cmake", "--preset", self.preset, "-DVTAPI_WERROR=OFF"],
                              cwd=self.tree.folder, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, check=False)
        if made.returncode != 0 or not self.make("all"):
            raise BuildError(f"the preset {self.preset} does not build in {self.tree.folder}")
        self.clean_code = read(self.library)
        listed = subprocess.run(["ctest", "--show-only=json-v1"], cwd=self.folder, check=True,
                                capture_output=True)
        self.checks = self._checks(json.loads(listed.stdout)["tests"])
        for check in self.checks:
            started = time.monotonic()
            outcome = self._run(check, 600)
            check.seconds = time.monotonic() - started
            if outcome:
                raise BuildError(f"without any change, in {self.folder}: {outcome}")

    def _checks(self, tests):
        programs = {}
        commands = []
        for test in tests:
            command = test["command"]
            properties = {p["name"]: p["value"] for p in test.get("properties", ())}
            folder = properties.get("WORKING_DIRECTORY", self.folder)
            environment = dict(e.split("=", 1) for e in properties.get("ENVIRONMENT", ()))
            at = next((i for i, a in enumerate(command) if a.startswith("--gtest_filter=")), None)
            if at is None:
                commands.append(Check(test["name"], command, folder, environment, None))
                continue
            program = command[at - 1]
            if program not in programs:
                target = os.path.relpath(program, self.folder)
                programs[program] = Check(
                    os.path.basename(program),
                    command[:at] + ["--gtest_fail_fast", "--gtest_brief=1"], folder, environment,
                    target)
        return list(programs.values()) + commands

    def make(self, target):
        command = ["ninja", "-C", self.folder, f"-j{self.compilers}", target]
        made = subprocess.run(command, check=False, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT)
        return made.returncode == 0

    def _run(self, check, limit):
        """Runs a check. None when it passes, otherwise what failed."""
        with tempfile.TemporaryFile() as output:
            process = subprocess.Popen(check.command, cwd=check.folder, stdin=subprocess.DEVNULL,
                                       stdout=output, stderr=subprocess.STDOUT,
                                       env={**os.environ, **check.environment},
                                       start_new_session=True)
            if "asan" not in self.preset:
                try:
                    resource.prlimit(process.pid, resource.RLIMIT_AS, (MEMORY_LIMIT, MEMORY_LIMIT))
                except ProcessLookupError:
                    pass
            try:
                status = process.wait(limit)
                late = False
            except subprocess.TimeoutExpired:
                late = True
            # Also what it has started and left behind.
            try:
                os.killpg(process.pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
            process.wait()
            if late:
                return f"{check.name} (time-out)"
            if status == 0:
                return None
            output.seek(0)
            failed = re.findall(rb"^\[  FAILED  \] ([\w./]+)", output.read(), re.MULTILINE)
            what = failed[0].decode() if failed else check.name
            return f"{what} (signal {-status})" if status < 0 else what

    def suite(self, folder):
        """All checks: the programs first, those of the folder's own tests before the others."""
        def order(check):
            return (check.target is None, check.name != f"{folder}_tests",
                    check.seconds if check.target else 0)
        return sorted(self.checks, key=order)

    def try_mutant(self, mutant):
        """Returns (result, what noticed it)."""
        name = os.path.join(self.tree.folder, mutant.file)
        clean = read(name)
        assert clean.decode()[mutant.start:mutant.end] == mutant.old
        text = clean.decode()
        try:
            with open(name, "w", encoding="utf-8") as stream:
                stream.write(text[:mutant.start] + mutant.new + text[mutant.end:])
            if not self.make("vtapi"):
                return "did not compile", ""
            if read(self.library) == self.clean_code:
                return "same code", ""
            built_all = False
            for check in self.suite(mutant.file.split("/", maxsplit=1)[0]):
                if check.target is None and not built_all:
                    built_all = True
                    if not self.make("all"):
                        return "killed", "the build of the tests"
                elif check.target and not self.make(check.target):
                    return "killed", f"the build of {check.name}"
                noticed = self._run(check, 10 + 5 * check.seconds)
                if noticed:
                    return "killed", noticed
            return "survived", ""
        finally:
            with open(name, "wb") as stream:
                stream.write(clean)


class Report:
    """The results so far, one JSON object per line."""

    def __init__(self, name):
        self.results = {}
        self.lock = threading.Lock()
        if name and os.path.exists(name):
            with open(name, encoding="utf-8") as stream:
                for line in stream:
                    entry = json.loads(line)
                    self.results[entry["identity"]] = entry
        if name:
            os.makedirs(os.path.dirname(os.path.abspath(name)), exist_ok=True)
        self.stream = open(name, "a", encoding="utf-8") if name else None

    def add(self, mutant, preset, result, by):
        before = self.results.get(mutant.identity)
        if before and result != "killed":
            result = "survived"  # it was built and run with another preset before
        entry = {"identity": mutant.identity, "file": mutant.file, "line": mutant.line,
                 "kind": mutant.kind, "change": mutant.change, "preset": preset, "result": result,
                 "by": by,
                 "survived": (before["survived"] if before else []) + [preset]}
        if result != "survived":
            entry["survived"].pop()
        with self.lock:
            self.results[mutant.identity] = entry
            if self.stream:
                print(json.dumps(entry), file=self.stream, flush=True)
            print(f"{mutant.place()}: {mutant.change}: {result}"
                  f"{' by ' + by if by else ''}{'' if preset == 'release' else f' ({preset})'}",
                  flush=True)


def work_through(trees, preset, mutants, report):
    """Tries the mutants with one preset, in all trees at once."""
    todo = queue.Queue()
    for mutant in mutants:
        todo.put(mutant)
    troubles = []

    def work(tree):
        try:
            build = tree.build(preset)
            while not troubles:
                mutant = todo.get_nowait()
                report.add(mutant, preset, *build.try_mutant(mutant))
        except queue.Empty:
            pass
        except Exception as trouble:  # pylint: disable=broad-except
            troubles.append(trouble)

    threads = [threading.Thread(target=work, args=(tree,)) for tree in trees]
    for thread in threads:
        thread.start()
    try:
        for thread in threads:
            thread.join()
    except KeyboardInterrupt as interrupt:
        print("mutate: ending the mutants at hand", file=sys.stderr)
        troubles.append(interrupt)
        for thread in threads:
            thread.join()
    if troubles:
        raise troubles[0]


COLUMNS = ("did not compile", "same code", "killed", "survived")


def row(name, results):
    counts = collections.Counter(r["result"] for r in results)
    cells = [len(results)] + [counts[c] for c in COLUMNS]
    return f"{name:20}" + "".join(f"{c:>17}" for c in cells) + f"{score_text(counts):>10}"


def score_text(counts):
    run = counts["killed"] + counts["survived"]
    # Rounded down, so that 100 % means all.
    return f"{counts['killed'] * 1000 // run / 10:.1f} %" if run else "-"


def print_report(mutants, report, reasons):
    done = [(m, report.results[m.identity]) for m in mutants if m.identity in report.results]
    header = f"{'':20}" + "".join(f"{c:>17}" for c in ("tried",) + COLUMNS) + f"{'score':>10}"
    print(f"\n{header}")
    for folder in FOLDERS:
        results = [r for m, r in done if m.file.startswith(folder + "/")]
        if results:
            print(row(folder, results))
    print()
    for kind in KINDS:
        results = [r for m, r in done if m.kind == kind]
        if results:
            print(row(kind, results))
    results = [r for _, r in done]
    print(f"\n{row('all', results)}\n")
    hangs = sum(1 for r in results if r["result"] == "killed" and "(time-out)" in r["by"])
    print(f"killed by a time-out: {hangs}")
    for preset in sorted({r["preset"] for r in results} - {"release"}):
        killed = sum(1 for r in results if r["result"] == "killed" and r["preset"] == preset)
        print(f"killed only by the preset {preset}: {killed}")
    for mutant, result in done:
        if result["result"] == "survived":
            reason = reasons.get((mutant.file, mutant.text, mutant.change), "no reason known")
            print(f"survived: {mutant.place()}: {mutant.change}\n"
                  f"    {mutant.text}\n    {reason}")
    if len(done) < len(mutants):
        print(f"not tried: {len(mutants) - len(done)}")
        return False
    counts = collections.Counter(r["result"] for r in results)
    run = counts["killed"] + counts["survived"]
    return run > 0 and counts["killed"] * 100 >= PASSING_SCORE * run


def main():
    parser = argparse.ArgumentParser(prog="mutate")
    parser.add_argument("root")
    parser.add_argument("--count", type=int, default=400)
    parser.add_argument("--seed", default="1")
    parser.add_argument("--jobs", type=int, default=1)
    parser.add_argument("--list", action="store_true")
    parser.add_argument("--report")
    parser.add_argument("--retry", action="store_true")
    parser.add_argument("--presets", default="release,asan,i386,asan-i386")
    parser.add_argument("--work")
    parser.add_argument("files", nargs="*")
    options = parser.parse_args()
    root = os.path.abspath(options.root)

    listed = subprocess.run(["git", "-C", root, "ls-files", *FOLDERS], check=True,
                            capture_output=True, text=True).stdout.split()
    files = sorted(f for f in listed if f.endswith((".cc", ".h")) and
                   os.path.isfile(os.path.join(root, f)))
    unknown = set(options.files) - set(files)
    if unknown:
        parser.error(f"no source of the library: {' '.join(sorted(unknown))}")
    mutants = choose(all_mutants(root, options.files or files, options.seed), options.count)
    if options.list:
        for mutant in mutants:
            print(f"{mutant.place()}: {mutant.kind}: {mutant.change}")
        print(f"{len(mutants)} changes")
        return 0

    with open(os.path.join(root, "scripts/lib/mutate_reasons.json"), encoding="utf-8") as stream:
        reasons = {(r["file"], r["line"], r["change"]): r["reason"] for r in json.load(stream)}
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    resource.setrlimit(resource.RLIMIT_FSIZE, (FILE_LIMIT, FILE_LIMIT))
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    report = Report(options.report)
    if options.retry:
        report.results = {i: r for i, r in report.results.items() if r["result"] != "survived"}
    work = options.work or tempfile.mkdtemp(prefix="vtapi-mutate-")
    compilers = max(1, (os.cpu_count() or 1) // options.jobs)
    trees = [Tree(root, os.path.join(work, f"tree-{i}"), compilers) for i in range(options.jobs)]
    try:
        for tree in trees:
            tree.fill()
        # What survives one preset meets the next.
        for number, preset in enumerate(options.presets.split(",")):
            todo = []
            for mutant in mutants:
                known = report.results.get(mutant.identity)
                if known is None:
                    wanted = number == 0
                else:
                    wanted = known["result"] == "survived" and preset not in known["survived"]
                if wanted:
                    todo.append(mutant)
            if todo:
                # For a few, a second build takes longer than it saves.
                work_through(trees if len(todo) > 20 else trees[:1], preset, todo, report)
    except BuildError as error:
        print(f"mutate: {error}", file=sys.stderr)
        return 1
    except KeyboardInterrupt:
        print("mutate: interrupted", file=sys.stderr)
    finally:
        if not options.work:
            shutil.rmtree(work, ignore_errors=True)
    return 0 if print_report(mutants, report, reasons) else 1


if __name__ == "__main__":
    sys.exit(main())
