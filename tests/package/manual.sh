#!/usr/bin/env bash
# The manual is well-formed and knows every command and option, and every header, in both of its languages; the READMEs name
# the same commands; completion of each shell offers commands and options, and what stands in a tree.
#   manual.sh TARVEX MAN_FOLDER COMPLETIONS HEADERS README...
set -euo pipefail
tarvex=$1 pages=$2 completions=$3 headers=$4
shift 4
readmes=("$@")

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
complain() { echo "$*" >&2; failures=$((failures + 1)); }

if command -v mandoc >/dev/null; then
  # The Japanese headings are not those that it looks for.
  for page in "$pages"/*.[135] "$pages"/ja/*.[135]; do
    mandoc -T lint -W warning "$page" | grep -vE 'first section is not "NAME"|outside NAME section' && complain "$page has faults"
  done
else
  echo "mandoc is not installed: the form of the pages is not checked"
fi

# As `tarvex --help` and the help of each command name them.
subcommands() { "$tarvex" "$@" --help | sed -nE '/^Subcommands:/,$s/^  ([a-z-]+).*/\1/p'; }
options() { "$tarvex" "$@" --help | sed -nE 's/^  (-[a-z],)?--([a-z0-9_-]+).*/\2/p'; }

check_options() {
  local option
  for option in $(options "$@"); do
    [[ $page == *" -$option"* || $page == *"| -$option"* || $keys == *".It Ic $option"* || $option == help ]] ||
      complain "the manual of $language does not know --$option of tarvex $*"
  done
}
check_command() {
  commands=$((commands + 1))
  grep -qE "^\.It Cm $* ?( |$)" <<<"$page" || complain "tarvex(1) of $language does not know tarvex $*"
  check_options "$@"
}
check_commands() {
  local command last below
  for command in $(subcommands); do
    mapfile -t below < <(subcommands "$command")
    if [ ${#below[@]} = 0 ]; then check_command "$command"; fi
    for last in "${below[@]}"; do check_command "$command" "$last"; done
  done
}
commands=0
for language in . ja; do
  page=$(<"$pages/$language/tarvex.1") keys=$(<"$pages/$language/tarvex.def.5")
  check_commands
done
[ $commands -ge 40 ] || complain "found only $commands commands in the help, in two languages"

# The console's page and completions know its options.
console=$(dirname "$tarvex")/tarvex-console
for option in $("$console" --help | sed -nE 's/^  (-[a-z],)?--([a-z-]+).*/\2/p'); do
  for language in . ja; do
    grep -qE "^\.It .*Fl -$option( |$)" "$pages/$language/tarvex-console.1" ||
      complain "tarvex-console(1) of $language does not know --$option"
  done
  grep -qe "--$option" "$completions/tarvex-console.bash" || complain "completion in bash does not know tarvex-console --$option"
  grep -qe "--$option" "$completions/tarvex-console.zsh" || complain "completion in zsh does not know tarvex-console --$option"
  grep -qe "-l $option" "$completions/tarvex-console.fish" || complain "completion in fish does not know tarvex-console --$option"
done

# What each page has entries for is the same, in the same order.
entries() { sed ':more; /\\$/ {N; s/\\\n//; b more}' "$1" | grep '^\.It '; }
references() { grep -E '^\.(Fn|In|Xr) ' "$1" | sed -E 's/ [.,]$//' | sort -u; }
for name in tarvex.1 tarvex.def.5 libtarvex.3 tarvex-console.1; do
  for list in entries references; do
    diff <($list "$pages/$name") <($list "$pages/ja/$name") || complain "$name has other $list in Japanese"
  done
done

# Commands between backquotes or on a line of their own, and options.
named() { grep -oE -e '(^|`|^\$ )(sudo )?tarvex( [a-z-]+){1,2}' -e ' --[a-z_-]+' "$1" | sed -E 's/^.*(tarvex| --)/\1/' | sort -u; }
for readme in "${readmes[@]:1}"; do
  diff <(named "${readmes[0]}") <(named "$readme") || complain "$readme names other commands than ${readmes[0]}"
done

library=$(<"$pages/libtarvex.3")
for header in "$headers"/*.h; do
  [[ $library == *".It In tarvex/$(basename "$header")"* ]] || complain "libtarvex(3) does not know $(basename "$header")"
done
for function in $(grep -oE '\btarvex_[a-z_]+\(' "$headers/tarvex_c.h" | tr -d '(' | sort -u); do
  [[ $library == *".Fn $function"* ]] || complain "libtarvex(3) does not know $function"
done

# Completion, as bash calls it: COMP_LINE up to COMP_POINT is what stands on the line.
PATH=$(dirname "$tarvex"):$PATH
tree=$work/tree
"$tarvex" --root "$tree" init >/dev/null
"$tarvex" --root "$tree" user add taro >/dev/null
echo secret | "$tarvex" --root "$tree" profile add taro me@example.org --nickname office --popserver pop.example.org --pop_tls tls \
  --popuser me --password-stdin >/dev/null
# shellcheck source=/dev/null
source "$completions/tarvex.bash"
compopt() { :; }  # works only while bash completes
COMP_WORDBREAKS=$' \t\n"\'@><=;|&(:'

offers() { # LINE WORD...
  local COMP_LINE=$1 COMP_POINT=${#1} COMPREPLY=() word
  shift
  _tarvex
  for word in "$@"; do
    [[ " ${COMPREPLY[*]} " == *" $word "* ]] || complain "\"$COMP_LINE\" does not offer $word but: ${COMPREPLY[*]}"
  done
  [ $# -gt 0 ] || [ ${#COMPREPLY[@]} = 0 ] || complain "\"$COMP_LINE\" offers ${COMPREPLY[*]}"
}
offers 'tarvex ' init profile forward run
offers 'tarvex pro' profile
offers 'tarvex nothing'
offers 'tarvex nothing '
offers "tarvex --root $tree forward " add list show set remove
offers 'tarvex profile add --pop' --popserver --popport --popuser
offers 'tarvex profile set office --smtpauth ' on off
offers 'tarvex profile set office --popport '
offers 'tarvex profile set office --smtpauth_mode cr' cram-md5
offers 'tarvex log -' --lines --follow
offers 'tarvex schedule o' on off
offers "tarvex --root $tree check " user0/from0 office me@example.org
offers "tarvex --root=$tree profile show of" office
offers "tarvex --root $tree profile show me@ex" example.org
offers "tarvex --root $tree profile add t" taro
offers "tarvex --root $work/tr" "$tree"
"$tarvex" --root "$tree" profile set office --nickname 'x;touch$(id)' >/dev/null
offers "tarvex --root $tree profile show x" 'x\;touch\$\(id\)'

# fish says itself what it would offer. In zsh a widget on a terminal of its own shows the line after completion.
offers_in_fish() { # LINE WORD
  fish --no-config -c "source '$completions/tarvex.fish'; complete -C '$1'" 2>&1 | grep -q "^$2"$'\t' ||
    complain "fish does not offer $2 for \"$1\""
}
offers_in_zsh() { # LINE WORD
  timeout 60 zsh -f "$work/zsh" "$completions" "$1" 2>&1 | grep -qE "^is: .* $2 :" || complain "zsh does not offer $2 for \"$1\""
}
cat >"$work/zsh" <<'END'
zmodload zsh/zpty
zpty shell 'stty -echo; zsh -f -i'
zpty -w shell "autoload -Uz compinit; compinit -D -u; _tarvex() { source ${(q)1}/tarvex.zsh }; compdef _tarvex tarvex"
zpty -w shell "try() { zle complete-word; zle -I; print -r -- \"is: \$BUFFER:\" }; zle -N try; bindkey '^G' try; echo rea''dy"
zpty -r -m shell said '*ready*'
zpty -w -n shell "$2"$'\a'
zpty -r -m shell said '*is: *:*'
print -r -- "$said"
END
for shell in fish zsh; do
  command -v $shell >/dev/null || { echo "$shell is not installed: its completion is not tried"; continue; }
  $shell -n "$completions/tarvex-console.$shell" || complain "$shell cannot read the completion of tarvex-console"
  $shell -n "$completions/tarvex.$shell" || complain "$shell cannot read its completion"
  offers_in_$shell 'tarvex sta' status
  offers_in_$shell 'tarvex status --js' --json
  offers_in_$shell "tarvex --root $tree profile show us" user0/from0
done

[ $failures = 0 ]
