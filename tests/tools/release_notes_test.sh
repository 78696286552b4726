#!/usr/bin/env bash
# velcan history as release notes: a description that Markdown or HTML would act on shows as
# written. Markdown is read back by cmark-gfm (with GitHub's extensions), HTML by its tags.
#   release_notes_test.sh TOOL DATA_FOLDER TEST_NAME
set -euo pipefail
tool=$1
data=$2
hostile=$data/hostile.xml
fail() { echo "FAIL: $*" >&2; exit 1; }

# Each description of FILE as every format shows its text: the text form's bullets, one a
# line, after the version's heading.
expected_texts() {
  "$tool" history "$1" | sed -n 's/^Version //p; s/^  - //p'
}

# The heading's and each list item's text as a Markdown reader gets them, one a line; fails
# when the Markdown makes anything but headings, lists, paragraphs and plain text.
markdown_texts() {
  local ast
  ast=$("$tool" history --format=markdown "$1" |
        cmark-gfm -e table -e strikethrough -e autolink -e tagfilter -t xml)
  local others
  others=$(grep -o '<[a-z_]\+' <<<"$ast" | sort -u |
           grep -vxE "<(document|heading|list|item|paragraph|text|softbreak)" || true)
  [ -z "$others" ] || fail "the Markdown makes $(tr '\n' ' ' <<<"$others"):"$'\n'"$ast"
  awk '/<(heading|item)/ { line = "" }
       /<text/ { t = $0; sub(/^ *<text[^>]*>/, "", t); sub(/<\/text>$/, "", t); line = line t }
       /<\/(heading|paragraph)>/ { print line; line = "" }' <<<"$ast" | decode_entities
}

decode_entities() {
  sed -e 's/&lt;/</g; s/&gt;/>/g; s/&quot;/"/g; s/&#39;/'"'"'/g; s/&apos;/'"'"'/g; s/&amp;/\&/g'
}

test_markdown_shows_every_description_as_written() {
  command -v cmark-gfm >/dev/null || fail "cmark-gfm is not installed (scripts/install-deps)"
  local want got
  want=$(expected_texts "$hostile")
  got=$(markdown_texts "$hostile")
  [ "$(wc -l <<<"$want")" -ge 16 ] || fail "the text form shows too little: $want"
  [ "$got" = "$want" ] || fail "Markdown shows:"$'\n'"$got"$'\n'"the text form:"$'\n'"$want"
}

test_markdown_of_the_sample_reads_as_its_text() {
  command -v cmark-gfm >/dev/null || fail "cmark-gfm is not installed (scripts/install-deps)"
  local sample=$data/../../../examples/version-history.xml
  [ "$(markdown_texts "$sample")" = "$(expected_texts "$sample")" ] || fail "the sample differs"
}

test_html_has_no_markup_but_its_own_and_shows_every_description_as_written() {
  local html want got
  html=$("$tool" history --format=html "$hostile")
  # Every line is one of the fragment's own tags, or one of them around text that holds no
  # markup: no < or >, and & only in the five references.
  local stray
  stray=$(grep -vxE '<section class="version">|</section>|<ul>|</ul>|<(h2|li)>[^<>]*</(h2|li)>' \
            <<<"$html" || true)
  [ -z "$stray" ] || fail "markup that is not the fragment's own: $stray"
  if sed -n 's/^<\(h2\|li\)>\(.*\)<\/\(h2\|li\)>$/\2/p' <<<"$html" |
       grep -E '&' | grep -vE '^([^&]|&(amp|lt|gt|quot|#39);)*$'; then
    fail "an & that begins no reference of the five"
  fi
  want=$(expected_texts "$hostile")
  got=$(sed -n 's/^<\(h2\|li\)>\(.*\)<\/\(h2\|li\)>$/\2/p' <<<"$html" | decode_entities)
  [ "$got" = "$want" ] || fail "HTML shows:"$'\n'"$got"$'\n'"the text form:"$'\n'"$want"
}

test_html_page_is_a_whole_document_around_the_fragment() {
  local page fragment
  page=$("$tool" history --format=html --standalone "$hostile")
  fragment=$("$tool" history --format=html "$hostile")
  [ "$(head -n 1 <<<"$page")" = "<!DOCTYPE html>" ] || fail "no doctype: $(head -n 1 <<<"$page")"
  grep -qx '<meta charset="utf-8">' <<<"$page" || fail "no charset"
  [ "$(sed -n '/^<body>$/,/^<\/body>$/p' <<<"$page" | sed '1d;$d')" = "$fragment" ] ||
    fail "the body is not the fragment"
  [ "$(tail -n 1 <<<"$page")" = "</html>" ] || fail "not closed"
}

test_every_format_folds_the_same_blanks() {
  local text markdown html
  text=$(expected_texts "$hostile" | grep -c '^indented over two lines$')
  markdown=$("$tool" history --format=markdown "$hostile" | grep -c '^- indented over two lines$')
  html=$("$tool" history --format=html "$hostile" | grep -c '^<li>indented over two lines</li>$')
  [ "$text$markdown$html" = 111 ] || fail "folded in text $text, Markdown $markdown, HTML $html"
}

test_json_keeps_the_descriptions_as_read() {
  "$tool" history --format=json "$hostile" |
    grep -qF '"    indented\n         over two lines"' || fail "the JSON folded a description"
}

test_json_form_and_json_option_are_the_same() {
  [ "$("$tool" history --json "$hostile")" = "$("$tool" history --format=json "$hostile")" ] ||
    fail "--json and --format=json differ"
}

test_since_takes_its_value_after_a_space_too() {
  [ "$("$tool" history --since 4.1.0)" = "$("$tool" history --since=4.1.0)" ] ||
    fail "--since VERSION and --since=VERSION differ"
}

test_since_the_newest_version_shows_nothing_and_succeeds() {
  local out rc=0
  out=$("$tool" history --since=4.2.0 --format=markdown) || rc=$?
  [ "$rc" -eq 0 ] && [ -z "$out" ] || fail "status $rc, output '$out'"
}

"$3"
