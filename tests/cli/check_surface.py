"""Compares what trovik-reset has with what is written about it: man page, completions, pages of documentation.

check_surface.py PROGRAM MANPAGE [--all-shells]    --all-shells: a shell that is not here is a failure
"""
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
PROGRAM = str(pathlib.Path(sys.argv[1]).resolve())
COMPLETIONS = ROOT / "packaging/completions"
faults = []


def same(what, written, real):
    written, real = sorted(written), sorted(real)
    if not real:
        faults.append(f"{what}: nothing was found to compare with")
    if written != real:
        faults.append(f"{what}: written {[x for x in written if x not in real]}, but there is {[x for x in real if x not in written]}"
                      if set(written) != set(real) else f"{what}: something is written twice")


def output(*command, **more):
    return subprocess.run(command, check=True, capture_output=True, text=True, timeout=120, **more).stdout


# What the program has.
def words_of_help(*command):
    return re.findall(r"^  (?:-h,)?(--[\w-]+)|^  ([a-z]+)  ", output(PROGRAM, *command, "--help"), re.M)


general = words_of_help()
commands = [command for _, command in general if command]
options = {"": {option for option, _ in general if option}}
for command in commands:
    options[command] = {option for option, _ in words_of_help(command) if option} - {"--help"}
all_options = set().union(*options.values())
schema = json.loads((ROOT / "cli/events.schema.json").read_text(encoding="utf-8"))
statuses = list(zip(map(str, schema["properties"]["status"]["enum"]), schema["properties"]["outcome"]["enum"]))
events = {kind["properties"]["event"]["const"]: kind["properties"] for kind in schema["oneOf"]}
lines = [json.loads(line) for line in output(PROGRAM, "reset", "--yes", "--json", "--simulate=back-at-once").splitlines()]
limits = {line["stage"]: line["limit"] for line in lines if line["event"] == "stage" and "limit" in line}
same("stages of the schema", events["stage"]["stage"]["enum"], limits)
scenarios = [line.split("\t")[0] for line in output(PROGRAM, "--scenarios").splitlines()]

# The man page: the headings of its lists, by section.
sections, section, wants = {}, "", False
for line in pathlib.Path(sys.argv[2]).read_text(encoding="utf-8").replace("\\-", "-").splitlines():
    if line.startswith(".SH "):
        section = line[4:]
        sections[section] = {"headings": [], "text": ""}
        continue
    if wants:
        sections[section]["headings"].append(re.sub(r'^\.\w+ |[" ]|\\f.', "", line))
    wants = line == ".TP"
    if section:
        sections[section]["text"] += line + "\n"
same("commands of the man page", sections["COMMANDS"]["headings"], commands)
same("options of the man page", [re.search("--[a-z-]+", heading)[0] for heading in sections["OPTIONS"]["headings"]], all_options)
same("stages of the man page", sections["STAGES"]["headings"], [f"{stage}({limit:g})" for stage, limit in limits.items()])
same("statuses of the man page", sections["EXIT STATUS"]["headings"], [f"{number}({name})" for number, name in statuses])
same("events of the man page", sections["EVENTS"]["headings"], events)
fields = {field for event in events.values() for field in event} | {
    state for event in events.values() for state in event.get("state", {}).get("enum", [])}
same("fields and states of events in the man page",
     set(re.findall(r'"(\w+)"', sections["EVENTS"]["text"])) , fields)

# Pages.
if output(PROGRAM, "--scenario-page") != (ROOT / "docs/SCENARIOS.md").read_text(encoding="utf-8"):
    faults.append("docs/SCENARIOS.md is not what trovik-reset --scenario-page prints")
using = (ROOT / "docs/USING.md").read_text(encoding="utf-8")
same("statuses of USING.md", re.findall(r"^\| (\d+) \| `([\w-]+)` \|", using, re.M), statuses)
same("stages of USING.md", re.findall(r"^\| `([\w-]+)` \| (\d+) s \|", using, re.M),
     [(stage, f"{limit:g}") for stage, limit in limits.items()])

# Completions: each shell is asked, on a machine with three devices.
with tempfile.TemporaryDirectory() as folder:
    stand_in = pathlib.Path(folder) / "trovik-reset"
    stand_in.write_text(f'#!/bin/sh\nexec {PROGRAM} --simulate=three-at-once "$@"\n')
    stand_in.chmod(0o755)
    environment = {"HOME": folder, "PATH": f"{folder}:{os.environ['PATH']}", "TERM": "dumb", "LC_ALL": "C.UTF-8"}

    def bash(line):
        words = re.findall(r"[^\s=]+|=", line) + ([""] if line.endswith(" ") else [])
        script = (f'source {COMPLETIONS}/trovik-reset.bash\nCOMP_WORDS=("$@") COMP_CWORD=$(($# - 1))\n'
                  '"$(complete -p trovik-reset | sed "s/.*-F \\([^ ]*\\).*/\\1/")"\nprintf "%s\\n" "${COMPREPLY[@]}"')
        return output("bash", "-c", script, "bash", *words, cwd=folder, env=environment).split()

    def fish(line):
        script = f"source {COMPLETIONS}/trovik-reset.fish; complete -C '{line}'"
        words = [word.split("\t")[0] for word in output("fish", "-c", script, cwd=folder, env=environment).splitlines()]
        return [word.removeprefix("--simulate=") for word in words]

    def zsh(line):
        # The completion runs in a terminal of its own, in which what is added is written down instead of shown.
        script = r'''
zmodload zsh/zpty
zpty shell zsh -f -i
send() { zpty -w shell "$1"; }
send "PROMPT=; fpath=($1 \$fpath); autoload -U compinit; compinit -D -u; zstyle ':completion:*' list-grouped no
compadd() { [[ \$* == *-[OAD]* ]] && { builtin compadd \"\$@\"; return } ; local -a __hits; builtin compadd -O __hits \"\$@\"
 print -rl -- \$__hits >> $HOME/added; builtin compadd \"\$@\" }
bindkey '^I' complete-word; finish() { print done > $HOME/finished }; zle -N finish; bindkey '^X' finish; print ready > $HOME/ready"
for _ in {1..600}; do [[ -e $HOME/ready ]] && break; sleep 0.05; done
zpty -n -w shell "$2"$'\t'$'\x18'
for _ in {1..600}; do zpty -r -t shell said; [[ -e $HOME/finished ]] && break; sleep 0.05; done
zpty -d shell
cat $HOME/added'''
        for name in ("added", "finished", "ready"):
            (pathlib.Path(folder) / name).unlink(missing_ok=True)
        return output("zsh", "-f", "-c", script, "zsh", str(COMPLETIONS), line, cwd=folder, env=environment).split()

    for shell in (bash, fish, zsh):
        if not shutil.which(shell.__name__):
            (faults.append if "--all-shells" in sys.argv else print)(f"skipped: {shell.__name__} is not here")
            continue
        for line, wanted in (
                ("trovik-reset ", commands),
                ("trovik-reset --", options[""]),
                ("trovik-reset list --", options["list"]),
                ("trovik-reset reset --", options["reset"]),
                ("trovik-reset reset --ke", ["--keep-station"]),
                ("trovik-reset reset --limit ", [stage + "=" for stage in limits]),
                ("trovik-reset check 1-", ["1-1", "1-2", "1-3"]),
                ("trovik-reset reset --simulate=", scenarios)):
            offered = {word.rstrip("=") for word in shell(line)}
            missing = sorted({word.rstrip("=") for word in wanted} - offered)
            if missing:
                faults.append(f"{shell.__name__} does not complete \"{line}\" with {missing}, but with {sorted(offered)[:20]}")
        unknown = {"--" + word for word in re.findall(
            r"complete .*-l ([\w-]+)" if shell is fish else r"--([a-z][\w-]*)",
            next(file for file in COMPLETIONS.iterdir() if file.name in ("trovik-reset." + shell.__name__, "_trovik-reset")
                 and (shell is zsh) == (file.name == "_trovik-reset")).read_text())} - all_options
        if unknown:
            faults.append(f"{shell.__name__} completes {sorted(unknown)}, which the program does not know")

print("\n".join(faults) or f"{len(commands)} commands, {len(all_options)} options, {len(scenarios)} scenarios agree")
sys.exit(bool(faults))
