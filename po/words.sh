#!/usr/bin/env bash
# Collects the texts of the code into po/ja.po and drops those that have gone; without a word of Japanese is what is new.
#   words.sh          changes po/ja.po
#   words.sh --check  changes nothing and fails unless each text has a translation with the same places ({0}), and no other
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
catalogue=po/ja.po
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Without locations and sorted, so that two changes seldom touch the same lines.
form=(--no-location --sort-output --no-wrap)
find host console -name '*.cpp' -o -name '*.h' | sort |
  xgettext --files-from=- --from-code=UTF-8 --language=C++ --keyword --keyword=Tr --keyword=TrN:1,2 --keyword=Marked \
    --package-name=tarvex "${form[@]}" -o "$work/all.pot"
sed 's/^\(#,.*\), c-format/\1/; /^#, c-format$/d' "$work/all.pot" >"$work/tarvex.pot"  # places are ours, not those of printf

if [ "${1-}" != --check ]; then
  msgmerge --quiet --no-fuzzy-matching "${form[@]}" "$catalogue" "$work/tarvex.pot" |
    msgattrib --no-obsolete "${form[@]}" | sed '/^"POT-Creation-Date/d' >"$work/ja.po"
  cp "$work/ja.po" "$catalogue"
  msgattrib --untranslated --no-wrap "$catalogue" | grep '^msgid "..*"' || true
  exit 0
fi

wrong=0
complain() { echo "po/ja.po: $*" >&2; wrong=1; }
# Of each text a line: the English forms and the Japanese one.
texts() {
  msgcat --no-wrap --no-location "$1" | awk '
    function flush() { if (id != "" && id != "\"\"") print id "\t" text; id = text = ""; at = "" }
    /^msgid / { flush(); at = "id"; id = substr($0, 7); next }
    /^msgid_plural / { at = "plural"; id = id " " substr($0, 14); next }
    /^msgstr/ { at = "text"; sub(/^msgstr(\[[0-9]\])? /, ""); text = text $0; next }
    /^"/ { if (at == "text") text = text $0; else id = id $0; next }
    END { flush() }' | sed 's/""//g'
}
texts "$work/tarvex.pot" | cut -f1 | sort >"$work/in-code"
texts "$catalogue" | sort >"$work/translated"
cut -f1 "$work/translated" >"$work/known"
while read -r text; do complain "not in there (./dev words): $text"; done < <(LC_ALL=C comm -23 <(LC_ALL=C sort "$work/in-code") <(LC_ALL=C sort "$work/known"))
while read -r text; do complain "no longer in the code (./dev words): $text"; done < <(LC_ALL=C comm -13 <(LC_ALL=C sort "$work/in-code") <(LC_ALL=C sort "$work/known"))
places() { grep -oE '\{[0-9]\}' <<<"$1" | sort -u | tr -d '\n' || true; }
while IFS=$'\t' read -r english japanese; do
  if [ -z "$japanese" ]; then complain "no Japanese for $english"
  elif [ "$(places "$english")" != "$(places "$japanese")" ]; then complain "other places than in the English: $english: $japanese"
  fi
done <"$work/translated"
msgattrib --only-fuzzy --no-wrap "$catalogue" | grep -q '^msgid "..*"' && complain "has texts that are marked as fuzzy"
msgfmt --check-header --check-domain -o /dev/null "$catalogue" || wrong=1
exit $wrong
