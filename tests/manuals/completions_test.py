#!/usr/bin/env python3
"""Presses Tab in a shell for each row of a table, and checks the completed line. Needs a running service with the plant
odd_names.toml and the tools in PATH. Usage: completions_test.py SHELL DIRECTORY-OF-THE-INSTALLED-COMPLETIONS."""
import os
import pty
import re
import select
import shutil
import signal
import subprocess
import sys
import tempfile
import time
from pathlib import Path

TIMEOUT = 10  # seconds

# The typed text, the completed line, and the shells that skip this row.
LINES = [
    ('kvoctl clie', 'kvoctl clients '),
    ('kvoctl panel sho', 'kvoctl panel show '),
    ('kvoctl usb lock g', 'kvoctl usb lock get '),
    ('kvoctl stations --ext', 'kvoctl stations --extended '),
    ('kvoctl stations --extended --js', 'kvoctl stations --extended --json '),
    ('kvoctl stations --extended --prev', 'kvoctl stations --extended --prev'),  # these options exclude each other
    ('kvoctl --json panel sho', 'kvoctl --json panel show '),
    ('kvoctl metrics 10.0.0.5 rot', 'kvoctl metrics 10.0.0.5 rotation '),
    ('kvoctl panel brightness-v2 10.0.0.5 1 8', 'kvoctl panel brightness-v2 10.0.0.5 1 8'),  # no candidates for a number
    ('kvoctl agent run --answer-all not', 'kvoctl agent run --answer-all not-running '),
    ('kvoctl agent run --answer-all=not', 'kvoctl agent run --answer-all=not-running '),
    ('kvoctl agent run --answer set-d', 'kvoctl agent run --answer set-darken='),
    ('kvoctl agent run --answer set-darken=1 --answer set-s', 'kvoctl agent run --answer set-darken=1 --answer set-statusline='),
    ('kvoctl station L', 'kvoctl station Lathe\\ 1 '),
    ('kvoctl station "L', 'kvoctl station "Lathe 1" '),
    ("kvoctl station 'L", "kvoctl station 'Lathe 1' "),
    ('kvoctl station Lathe\\ ', 'kvoctl station Lathe\\ 1 '),
    ('kvoctl station O', "kvoctl station O\\'Brien\\ \\&\\ \\$HOME\\ \\`id\\` "),
    ('kvoctl station "O', 'kvoctl station "O\'Brien & \\$HOME \\`id\\`" '),
    ('kvoctl station S', 'kvoctl station Säge:links '),
    ('kvoctl station Säge:l', 'kvoctl station Säge:links '),
    ('kvoctl station 10.0.0.7', 'kvoctl station 10.0.0.7 '),
    ('kvoctl station -- -d', 'kvoctl station -- -dashed '),
    ('kvoctl agent run --focus 10.0.0.8', 'kvoctl agent run --focus 10.0.0.8 '),
    ('kvosim fault add sil', 'kvosim fault add silent '),
    ('kvosim fault add silent --command getVer', 'kvosim fault add silent --command getVersion '),
    ('kvosim station 10.0.0.7', 'kvosim station 10.0.0.7 '),
    ('kvosim station 10.0.0.5 --set usb_sc', 'kvosim station 10.0.0.5 --set usb_scanning='),
    ('kvosim station 10.0.0.5 --set a=1 usb_sc', 'kvosim station 10.0.0.5 --set a=1 usb_scanning='),
    ('kvosim usb unplug 10.0.0.5 st', 'kvosim usb unplug 10.0.0.5 stick '),
    ('kvosim remote close ', 'kvosim remote close 7 '),
    ('kvosim serve --plant pla', 'kvosim serve --plant plant.toml '),
    ('kvosim serve --plant=pla', 'kvosim serve --plant=plant.toml '),
    ('kvosim serve --plant ~/pla', 'kvosim serve --plant ~/plant.toml '),
    ('kvosim run --registry=reg', 'kvosim run --registry=registry/'),
    ('kvoctl stations > pla', 'kvoctl stations > plant.toml '),  # the shell's own file completion
    ('~/kvoctl clie', '~/kvoctl clients '),
    ('~/nowhere/kvoctl clie', '~/nowhere/kvoctl clie'),  # no program to run, and no error message
    ('kvosim run --registry reg', 'kvosim run --registry registry/'),
    ('kvosim run -- panel-te', 'kvosim run -- panel-tests '),
    ('kvoctl trace --summary -- panel-te', 'kvoctl trace --summary -- panel-tests '),
    ('kvoctl report pla', 'kvoctl report plant.toml '),
    ('kvoctl report fault.tar.gz --dry', 'kvoctl report fault.tar.gz --dry-run '),
    ('kvoctl record fault.rec -- panel-te', 'kvoctl record fault.rec -- panel-tests '),
    ('kvosim run -- kvoctl clie', 'kvosim run -- kvoctl clients ', 'bash'),  # bash needs the package bash-completion for this
]

SHOW = 'LINE IS <'
SHOW_LINE, CLEAR_LINE = '\x14', '\x15'  # Ctrl-T, Ctrl-U


def start_of(shell, folder, home):
    """The command that starts a shell in which Ctrl-T prints the current command line."""
    if shell == 'bash':
        start = home / 'rc'
        start.write_text(f'''PS1='READY '; bind 'set bell-style none'; bind 'set enable-bracketed-paste off'
bind -x '"\\C-t": printf "{SHOW}%s>\\n" "$READLINE_LINE"'
. {folder}/bash-completion/completions/kvoctl
''')
        return ['bash', '--noprofile', '--rcfile', str(start), '-i']
    (home / '.zshrc').write_text(f'''PS1='READY '; unsetopt beep; setopt no_prompt_cr; unset zle_bracketed_paste
fpath=({folder}/zsh/site-functions $fpath); autoload -Uz compinit; compinit -u -D
show() {{ print -r -- "{SHOW}$BUFFER>" }}; zle -N show; bindkey '^T' show
''')
    return ['zsh', '-d', '-i']


class Terminal:
    """An interactive shell on a pseudo terminal."""

    def __init__(self, command, folder):
        self.process, self.terminal = pty.fork()
        if self.process == 0:
            os.chdir(folder)
            environment = os.environ | {'HOME': str(folder), 'ZDOTDIR': str(folder), 'TERM': 'dumb', 'LC_ALL': 'C.UTF-8', 'COLUMNS': '400'}
            os.execvpe(command[0], command, environment)

    def until(self, pattern):
        text = b''
        end = time.monotonic() + TIMEOUT
        while time.monotonic() < end:
            if select.select([self.terminal], [], [], end - time.monotonic())[0]:
                text += os.read(self.terminal, 65536)
                if found := re.search(pattern, text.decode(errors='replace').replace('\r', ''), re.S):
                    return found
        sys.exit(f'the shell has not shown {pattern!r}, but {text.decode(errors="replace")!r}')

    def write(self, text):
        os.write(self.terminal, text.encode())

    def close(self):
        os.kill(self.process, signal.SIGKILL)
        os.waitpid(self.process, 0)
        os.close(self.terminal)


def completed_by_pressing_tab(terminal, typed):
    terminal.write(typed + '\t' + SHOW_LINE)
    line = terminal.until(re.escape(SHOW) + '(.*?)>\n')[1]
    terminal.write(CLEAR_LINE)
    return line


def completed_by_fish(folder, home, typed):
    """The candidates that fish offers for the last word."""
    source = ''.join(f'source {folder}/fish/vendor_completions.d/{program}.fish; ' for program in ('kvoctl', 'kvosim'))
    run = subprocess.run(['fish', '--no-config', '-c', source + 'complete -C "$argv[1]"', typed], cwd=home, stdout=subprocess.PIPE,
                         stderr=subprocess.STDOUT, text=True, check=True, timeout=TIMEOUT, env=os.environ | {'HOME': str(home), 'LC_ALL': 'C.UTF-8'})
    return sorted({line.split('\t')[0] for line in run.stdout.splitlines()})


def words_of(line):
    """The words of a line without their quotes."""
    words = []
    word, quote, escaped = '', '', False
    for character in line:
        if escaped:
            word, escaped = word + character, False
        elif character == '\\' and quote != "'":
            escaped = True
        elif character == quote:
            quote = ''
        elif quote:
            word += character
        elif character in '"\'':
            quote = character
        elif character == ' ':
            words.append(word)
            word = ''
        else:
            word += character
    return [*words, word] if word else words


def mistakes_of_fish(folder, home, rows):
    for typed, expected, *_ in rows:
        candidates = completed_by_fish(folder, home, typed)
        wanted = [] if typed == expected else [words_of(expected)[-1]]
        if candidates != wanted:
            yield f'{typed!r} has the candidates {candidates} instead of {wanted}'


def mistakes_at_prompt(shell, folder, home, rows):
    terminal = Terminal(start_of(shell, folder, home), home)
    terminal.until('READY ')
    for typed, expected, *_ in rows:
        line = completed_by_pressing_tab(terminal, typed)
        if line != expected:
            yield f'{typed!r} was completed to {line!r} instead of {expected!r}'
    terminal.close()


def main(shell, folder):
    rows = [row for row in LINES if shell not in row[2:]]
    with tempfile.TemporaryDirectory() as name:
        home = Path(name)
        (home / 'plant.toml').touch()
        (home / 'panel-tests').touch(mode=0o755)
        os.environ['PATH'] = f"{home}:{os.environ['PATH']}"
        (home / 'registry').mkdir()
        (home / 'kvoctl').symlink_to(Path(shutil.which('kvoctl')).resolve())
        place = (Path(folder).resolve(), home, rows)
        mistakes = list(mistakes_of_fish(*place) if shell == 'fish' else mistakes_at_prompt(shell, *place))
    print('\n'.join(mistakes) or f'{len(rows)} lines completed by {shell}')
    sys.exit(bool(mistakes))


if __name__ == '__main__':
    main(*sys.argv[1:])
