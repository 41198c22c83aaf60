#!/usr/bin/env bash
# The console as a script sees it: zemash_test.sh BINDIR [EMULATOR...]. Needs jq. Runs all rows and names those that fail.
set -uo pipefail

bin=$1
emulator=("${@:2}")
scratch=$(mktemp -d)
export ZEMA_RUNTIME_DIR=$scratch/run
pids=()
failures=0

end_all() {
    [ ${#pids[@]} -eq 0 ] || kill -KILL "${pids[@]}" 2>/dev/null
    wait 2>/dev/null
    rm -rf "$scratch"
}
trap end_all EXIT

zemash() { "${emulator[@]}" "$bin/zemash" "$@"; }

# start OUTPUT PROGRAM [ARGUMENT]...: in the background; its process is the last of $pids.
start() {
    : >"$scratch/$1"
    "${emulator[@]}" "$bin/$2" "${@:3}" >"$scratch/$1" 2>"$scratch/err" &
    pids+=($!)
}

start_service() {
    start ready "$@"
    eventually grep -qa ready "$scratch/ready"
}

eventually() {
    local end=$((SECONDS + 20))
    until "$@"; do
        [ "$SECONDS" -lt "$end" ] || return 1
        sleep 0.02
    done
}

# expect REASON COMMAND...: counts a failure when the command fails.
expect() {
    local reason=$1
    shift
    "$@" && return
    echo "FAILED: $reason: $*"
    echo "  standard output: $(tail -c 500 "$scratch/out" | cat -v)"
    echo "  standard error: $(tail -c 500 "$scratch/err" | cat -v)"
    failures=$((failures + 1))
}

# row REASON STATUS PATTERN ARGUMENT...: runs zemash and expects its exit status, and the pattern in what it says.
row() {
    local reason=$1 wanted=$2 pattern=$3 status=0
    shift 3
    zemash "$@" >"$scratch/out" 2>"$scratch/err" </dev/null || status=$?
    expect "$reason" test "$status" -eq "$wanted"
    expect "$reason" grep -qaE -- "$pattern" "$scratch/out" "$scratch/err"
}

json() { jq -es "any(.[]; $1)" "$scratch/out" >/dev/null 2>&1; }
takes_less_than() { [ $(($(date +%s%N) / 1000000 - started)) -lt "$1" ]; }

row "a terminal beyond the last" 2 'takes a number' -t 65535 words
row "a terminal that is no number" 2 'takes a number' -t 3x words
row "an unknown word" 2 'unknown word' wrods
row "an unknown option" 2 'wrong option' -q
row "two verbs" 2 'exclude' -c 'fw show all' words
row "json without a command" 2 'goes with' --json
row "following what has no end" 2 'goes with' -f words
row "words with words" 2 'takes no words' words fw
row "devices with words" 2 'takes no words' devices lo
row "options of nothing" 2 'takes a connection' options --json
row "options of a connection that is not there" 3 'No such file' options no-such-connection name
row "the machine's devices" 0 '^lo +1 ' devices
row "the machine's devices as objects" 0 . devices --json
expect "their fields" json '.name == "lo" and .index == 1 and .address == "127.0.0.1" and .mask == "255.0.0.0"'
row "tables of nobody" 3 'no live process' tables
row "a table that is no number" 2 'takes numbers' tables x
row "the manual" 0 'Exit status' --help
row "status without anybody" 0 'nobody is there' status
row "a kind that is none" 2 'some of event, call' monitor --kind event,x
row "a count of what ends by itself" 2 'go with monitor' -n 1 records
row "a check without a value" 2 'a kind and a value' check mac
row "a check of no known kind" 2 'unknown kind "ipv5"' check ipv5 1.2.3.4.5
row "a value like an option" 1 'rejected: not decimal' check number -- -5
while read -r kind good bad reason; do
    [ "$good" = - ] || row "$kind $good" 0 '^accepted$' check "$kind" -- "$good"
    row "$kind $bad" 1 "^rejected: .*$reason" check "$kind" -- "$bad"
done <<'KINDS'
ipv4 10.0.0.255 10.0.0.256 numbers up to 255
host 10.0.0.1 224.0.0.1 from 1.0.0.0 to 223
mask 255.255.254.0 255.0.255.0 ones and then zeros
host-with-mask 10.0.0.1/255.0.0.0 10.255.255.255/255.0.0.0 broadcast
host-with-mask - 127.0.0.1/255.0.0.0 the host is not
host-with-mask - 10.0.0.1 the mask is not
ipv6 fe80::1 ff02::1 multicast
ipv6 - :: unspecified
ipv6 - ::1 loopback
ipv6 - 1.2.3.4 no IPv6 address
ipv6-mask ffff:fe00:: ffff:0:ffff:: ones and then zeros
ipv6-mask - ff:: ones and then zeros
ipv6-mask - 64 no IPv6 address
mac 0:1:2:3:4:f 0:1:2:3:4 six hexadecimal
mac - : no number at all
domain a-.b -a.b no hyphen at
range 10.0.0.1-10.0.0.9 10.0.0.9-10.0.0.1 start is above
range - 10.0.0.1 no hyphen
range - 10.0.0.1- no end
range - a-10.0.0.1 start is no IPv4
range - 10.0.0.1-a end is no IPv4
range - 10.0.0.1-10.0.1.1 last numbers
range - 255.255.255.1-255.255.255.1 255.255.255.0/24
range - 0.0.0.0-0.0.0.1 begins with 0.0.0.0
number 007 7.0 decimal digits
KINDS
row "what the library recorded" 1 '^  qx_util_common.cpp:[1-9][0-9]*  1 0 0 0 0$' check ipv6 ::1
row "a rejected value as an object" 1 . check --json domain "$(printf 'a%.0s' {1..256})"
expect "its fields" json '.kind == "domain" and .accepted == false and (.value | length) == 256 and
    (.reason | startswith("not a name of labels")) and .records[0].values == [1, 256, 0, 0, 0] and .records[0].line > 0'
row "an accepted one" 0 '"accepted": true, "reason": null, "records": \[\]}' --json check number 1
zemash records >"$scratch/out" 2>"$scratch/err"
expect "values that somebody tries leave no record" test ! -s "$scratch/out"
row "more strings than receivers take" 2 'do not fit' usr $(seq 40)
row "nobody there" 3 'nobody there' -c 'fw show all'
row "nobody there for an event" 3 'nobody there' words

hostile=$'m\x1b]\xff"'
start_service zemad
start_service forwarding_module --name "$hostile" --words fw,usr
module=${pids[-1]}

"${emulator[@]}" "$bin/layer_client" save 7 wan7 >"$scratch/out"
"${emulator[@]}" "$bin/layer_client" save 8 wan8 hidden >"$scratch/out"
row "the tables" 0 '^table 2: 2 items$' tables
row "a table's items" 0 '^index 8: 40 bytes$' tables 2
row "an item" 0 '^00000010 ( ..){4} 01 00 00 00 77 61 6e 37 .*[|]........wan7....[|]$' tables 2 7
row "no such table" 1 'no such table or item' tables 99
row "no such item" 1 'no such table or item' tables 2 9
row "looking makes no table" 0 . tables --json
expect "there is the one" test "$(cat "$scratch/out")" = '{"table": 2, "items": 2}'
row "layer records" 0 '^table 2 index 8: state 2, .* hidden$' tables --layer 2
row "a layer record as an object" 0 . tables --json --layer 2 7
expect "its fields" json '.length == 40 and .layer.index == 7 and .layer.visible and (.hex | length) == 80'

row "an answer" 0 'queries' -t 3 -c 'fw show all'
expect "no control character of a process reaches the terminal" grep -qaF 'm\x1b]\xff"' "$scratch/out"
expect "and no zero byte" test "$(tr -d '\0\33' <"$scratch/out" | wc -c)" -eq "$(wc -c <"$scratch/out")"
row "a debug command at the display entry" 1 'a debug command' -c 'cpu dbg on'
row "a display command at the debug entry" 1 'a display command' -d -c 'fw show all'
row "a parameter out of range" 1 'from 1 to 16' -d -c 'vbr-fw clean vbr-id 17'
row "a space too many" 1 'not even a space' -c 'fw show all '
row "an unknown command" 1 'no such command' -c 'fx'
row "an empty command" 1 'no such command' -c ''
row "a word that nobody registered" 3 "no answer.*$module" -c 'wan show layer all'
row "registered words" 0 '^fw$' words
row "a tree walk" 0 '\[wan\]' usr
row "an option behind usr is a word" 3 'no answer' usr wan mtu -c fw
row "an accepted command as an object" 0 . -t 7 --json -c 'fw show stats'
expect "its fields" json '[.command, .terminal, .entry, .result, .exit] == ["fw show stats", 7, "display", 0, 0]'
expect "the module's answer, whatever its bytes" \
    json ".answers[] | .pid == $module and .state == \"done\" and (.text | startswith(\"m\\u001b]\\ufffd\"))"
expect "all that was printed" json '.output | startswith("\r\nm")'
row "a refused one" 1 . --json -d -c 'dbg 0 5'
expect "its result" json '[.entry, .result, .exit, .answers[0].text] == ["debug", 4146077697, 1, ""]'
row "words as an object" 0 . words --json
expect "without a result" json '[.command, .entry, .result] == ["words", "words", null]'
row "records as objects" 0 . records --json
expect "the rejection" json '.values == [1, 3, 1, 0, 5] and .alive and .file == "qx_zema_cmdagent.cpp"'

printf 'fw show all\r\n\ncpu dbg on\nenable\ndbg 1 -1\nquit\nwords\n' | zemash >"$scratch/out" 2>"$scratch/err"
expect "a pipe: the last command's status" test "$?" -eq 1
expect "a pipe: no prompt, and quit ends it" test "$(grep -c 'zema:\|^fw$' "$scratch/out")" -eq 0
expect "a pipe: each line a command" test "$(grep -c 'refused' "$scratch/err")" -eq 2
printf 'cpu dbg on\nfw show all' | zemash >"$scratch/out" 2>"$scratch/err"
expect "a pipe: the last line needs no end" test "$?" -eq 0

start followed zemash records -f
eventually grep -q ' 1 3 1 0 5$' "$scratch/followed"
row "a new record" 1 refused -d -c 'dbg 0 77'
expect "is followed" eventually grep -q ' 1 3 1 0 77$' "$scratch/followed"
expect "and no record is shown twice" test "$(grep -c ' 1 3 1 0 5$' "$scratch/followed")" -eq 1
kill "${pids[-1]}"

row "the service at a glance" 0 "^ +${pids[0]} .*[0-9]$" status
expect "its roles" grep -q 'rpc-4710203E rpc-4830514F .*sync-owner module-49' "$scratch/out"
expect "its tables" grep -q '^tables  1, items 2$' "$scratch/out"
row "the same as an object" 0 . status --json
expect "its fields" json ".tables == {tables: 1, items: 2} and .blocks.blocks >= 0 and .records.records >= 3 and
    (.processes[] | select(.pid == $module) | .answering and .handled > 5 and any(.roles[]; .role == \"event-8853\"))"
start monitored zemash monitor --kind call,event --process "${pids[0]}" --count 2 --json
eventually grep -q monitoring "$scratch/err"
row "what the monitor sees" 0 . -t 3 -c 'fw show all'
wait "${pids[-1]}"
expect "it ends after two" test "$?" -eq 0
cp "$scratch/monitored" "$scratch/out"
expect "the call" json ".kind == \"call\" and .number == 1211126095 and .content == \"fw show all\" and .to.pid == ${pids[0]}"
expect "the event" json '.kind == "event" and .number == 8853 and .content == "3 Zemacmd fw show all" and .size == 260'
start monitored zemash monitor
eventually grep -q monitoring "$scratch/err"
row "a print on the terminal" 0 . -t 3 -c 'fw show all'
expect "is seen, and obeyed by nobody" eventually grep -qaF '\x1b]\xff"' "$scratch/monitored"
kill -INT "${pids[-1]}" && wait "${pids[-1]}"

head -c 5000 /dev/urandom >"$scratch/data"
example() { "${emulator[@]}" "$bin/$1" "${@:2}"; }
descriptor=$(example large_blocks write "$scratch/data" --plain)
id=$(printf '%08x' "${descriptor%%:*}")
row "a block" 0 "^$id +5000 .* large_blocks.* [0-9]+ .gone.$" blocks
row "a block as an object" 0 . blocks --json
expect "its fields" json "select(.id == \"$id\") | [.size, .alive, .removed] == [5000, false, false] and .age < 60"
row "removing what is no block" 2 'goes with blocks' -r records
row "a block whose maker is gone is removed" 0 . blocks --remove-orphans --json
expect "that one" json "select(.id == \"$id\") | .removed"
row "and no more there" 0 . blocks
expect "not in the list" test "$(grep -c "$id" "$scratch/out")" -eq 0
example large_blocks read "$descriptor" --plain >"$scratch/out" 2>"$scratch/err"
expect "nor to be read" grep -q 0xF1000007 "$scratch/err"
descriptor=$(example large_blocks write "$scratch/data")
example large_blocks read "$descriptor" >"$scratch/out"
expect "compressed and back" cmp -s "$scratch/data" "$scratch/out"

kill -STOP "$module"
eventually grep -q '^State:[[:space:]]*T' "/proc/$module/status"
started=$(($(date +%s%N) / 1000000))
row "a process that hangs is named" 3 "pid $module\) did not finish within 300 ms" --wait 300 -c 'fw show all'
expect "after the time set, not after another" takes_less_than 2000
start out zemash -t 9 --wait 60000 -c 'fw show all'
has_role() { compgen -G "$ZEMA_RUNTIME_DIR/roles/terminal-9.*" >/dev/null; }
expect "a console takes its terminal" eventually has_role
kill "${pids[-1]}"
wait "${pids[-1]}"
expect "a console that is told to end dies of it" test "$?" -eq 143
expect "and gives its terminal up" test -z "$(compgen -G "$ZEMA_RUNTIME_DIR/roles/terminal-9.*")"
kill -CONT "$module"
row "the next command" 0 'queries' -c 'fw show all'

[ "$failures" -eq 0 ] || exit 1
echo "all rows hold"
