#!/usr/bin/env bash
# The main job, live, in several processes: usage tools/demo.sh BINDIR. Prints what is typed, what comes back and what
# was checked; ends with a nonzero status and a word at the first thing that did not happen. Leaves nothing behind.
set -euo pipefail

bin=$(cd "${1:?usage: tools/demo.sh BINDIR}" && pwd)
scratch=$(mktemp -d)
export ZEMA_RUNTIME_DIR=$scratch/run
unset ZEMA_DIAG
declare -A pids=()
checks=0

end_all() {
    local name
    for name in "${!pids[@]}"; do
        kill -KILL "${pids[$name]}" 2>/dev/null || true
    done
    wait 2>/dev/null || true
    rm -rf "$scratch"
}
trap end_all EXIT

fail() {
    echo "  FAILED: $1"
    echo "demo: failed after $checks checks: $1"
    exit 1
}

# check WHAT COMMAND...: the command must succeed.
check() {
    local what=$1
    shift
    "$@" || fail "$what"
    checks=$((checks + 1))
    echo "  ok: $what"
}

title() { printf '\n== %s\n' "$1"; }

# eventually COMMAND...: waits up to ten seconds until the command succeeds.
eventually() {
    local end=$((SECONDS + 10))
    until "$@"; do
        [ "$SECONDS" -lt "$end" ] || return 1
        sleep 0.01
    done
}

show() { sed '/^$/d; s/^/  | /'; }

in_file() { grep -qF -- "$2" "$1"; }
out_has() { grep -qF -- "$1" <<<"$out"; }
out_lacks() { ! out_has "$1"; }
out_count() { [ "$(grep -cxF -- "$1" <<<"$out")" -eq "$2" ]; }
exited() { [ "$code" -eq "$1" ]; }
lives() { kill -0 "$1" 2>/dev/null; }
is_gone() { ! lives "$1"; }
is_stopped() { grep -q '^State:[[:space:]]*T' "/proc/$1/status"; }
is_empty() { [ -z "$(ls -A "$1")" ]; }

# start NAME PROGRAM [ARGUMENT]...: starts it and waits until it says that it is ready.
start() {
    local name=$1
    shift
    echo "\$ $* &"
    : >"$scratch/$name.log"
    "$bin/$1" "${@:2}" >"$scratch/$name.log" 2>&1 &
    pids[$name]=$!
    check "$name is ready, process ${pids[$name]}" eventually in_file "$scratch/$name.log" "ready"
}

# type_in ARGUMENT...: runs zemash; its output is in $out, its exit status in $code.
type_in() {
    local word line='$ zemash'
    for word in "$@"; do
        [[ $word =~ ^[a-z0-9-]+$ ]] || word="'$word'"
        line+=" $word"
    done
    echo "$line"
    code=0
    out=$("$bin/zemash" "$@" 2>&1) || code=$?
    out=${out//$'\r'/}
    show <<<"$out"
    echo "  exit status $code"
}

# run PROGRAM [ARGUMENT]...: runs it to its end; its output is in $out, its exit status in $code.
run() {
    echo "\$ $*"
    code=0
    out=$("$bin/$1" "${@:2}" 2>&1) || code=$?
    show <<<"$out"
    echo "  exit status $code"
}

hlp_count() { [ "$(grep -c '^HLP message' "$scratch/kernel_side.log")" -eq "$1" ]; }

title "The processes of the service, in $ZEMA_RUNTIME_DIR"
start kernel_side kernel_side
start zemad zemad
start fwd-a forwarding_module --name fwd-a --words fw,napt,usr
start fwd-b forwarding_module --name fwd-b --words fw,route,user_flow

title "A display command: zemad checks it, tells the kernel's side and every process; both modules answer on terminal 3"
type_in -t 3 -c 'fw show all'
check "answered" exited 0
check "fwd-a answered" out_has "fwd-a: "
check "fwd-b answered" out_has "fwd-b: "

title "What the kernel's side got of it"
eventually in_file "$scratch/kernel_side.log" command || fail "the kernel's side got the command"
sed -n '/^HLP/,$p' "$scratch/kernel_side.log" | show
check "an HLP message of type 0x2002A002 from zemad" \
    in_file "$scratch/kernel_side.log" "HLP message 0x2002A002 from process ${pids[zemad]}"
check "one item of type 2 with 260 bytes" in_file "$scratch/kernel_side.log" "TLV type 2, 260 bytes"
check "with the terminal and the words" \
    in_file "$scratch/kernel_side.log" 'command of 5 strings: "3" "Zemacmd" "fw" "show" "all"'

title "A debug command at the entry for display commands"
type_in -t 3 -c 'cpu dbg on'
check "refused" exited 1
check "with the reason" out_has "a debug command"

title "Two parameters that do not fit, and the records that they left in zemad"
type_in -t 3 -c 'user_flow show 5000'
check "refused" exited 1
check "with what it takes" out_has "a number from 1 to 1024"
type_in -t 3 -d -c 'dbg 0 5'
check "refused" exited 1
check "with what it takes" out_has "the first above 0"
type_in records
check "the range check's record: 14 characters of command, 19 of text, read well, value 5000" out_has " 1 14 19 1 5000"
check "the record of the row, counted from 0" out_has " 1 11 19 0 0"
check "the record of the two values 0 and 5" out_has " 1 3 1 0 5"
check "the entry's record: rejected, caller word 0x00030000" out_has "0xF7202001 (command rejected) 0x00030000 0 0 0"

title "The command words that modules have registered"
type_in -t 3 words
check "answered" exited 0
check "fw is there twice, once for each module" out_count fw 2
check "napt is fwd-a's" out_count napt 1
check "route is fwd-b's" out_count route 1

title "The command tree, which fwd-a serves"
type_in -t 3 usr
check "the first level is listed" out_has "Zemacmd usr [wan]"
type_in -t 3 usr wan '?'
check "and the second" out_has "Zemacmd usr wan [mtu]"
type_in -t 3 usr wan mtu '?'
check "a leaf tells what it takes" out_has "usr wan mtu BYTES"
type_in -t 3 usr wan mtu 1400
check "and executes" out_has "wan1 mtu 1400"
type_in -t 3 usr wan mtu 1300 9
check "not with a wrong number of arguments: nobody answers" exited 3
type_in -t 3 usr wan mtu '?'
check "and nothing was changed" out_has "now 1400"

title "A module that hangs while a command waits for it, and is killed"
victim=${pids[fwd-b]}
echo "\$ kill -STOP $victim"
kill -STOP "$victim"
eventually is_stopped "$victim" || fail "fwd-b is stopped"
echo "\$ zemash -t 3 --wait 20000 -c 'fw show stats' &"
"$bin/zemash" -t 3 --wait 20000 -c 'fw show stats' >"$scratch/waiting.log" 2>&1 &
pids[waiting]=$!
check "fwd-a has answered" eventually in_file "$scratch/waiting.log" "fwd-a: "
check "the command still waits for fwd-b" lives "${pids[waiting]}"
echo "\$ kill -KILL $victim"
killed=$(date +%s%N)
disown "$victim" # its end is no news to this shell
kill -KILL "$victim"
code=0
wait "${pids[waiting]}" || code=$?
took=$((($(date +%s%N) - killed) / 1000000))
unset 'pids[waiting]' 'pids[fwd-b]'
out=$(tr -d '\r' <"$scratch/waiting.log")
show <<<"$out"
echo "  exit status $code, $took ms after the kill"
check "the answer is not whole" exited 3
check "the dead module is named" out_has "fwd-b (pid $victim) died before it was done"
check "at once, not after a time-out" test "$took" -lt 2000

title "The next command"
type_in -t 3 -c 'fw show all'
check "answered" exited 0
check "by fwd-a" out_has "fwd-a: "
check "not by fwd-b" out_lacks "fwd-b"
check "the kernel's side got the three accepted commands and no refused one" eventually hlp_count 3
echo "\$ zemash records | grep dead"
out=$("$bin/zemash" records | grep dead) || true
show <<<"$out"
check "the dead module's records are still there" out_has "$victim (dead)"

title "Shared tables: zemad owns them, other processes save and read layer records"
run layer_client save 1 wan1
check "saved" exited 0
run layer_client save 2 wan2 hidden
check "saved" exited 0
run layer_client save-off-thread 3 wan3
check "a save from another thread draws the warning" \
    out_has "[WARNNING] TableId=TABLE_OF_IPV4IF save not in zema main thread"
check "and a back trace" out_has "Call stack of thread"
check "and is carried out" out_has "saved interface 3"
run layer_client list
check "the listing has the first record" out_has "interface 1: wan1, state 2"
check "and the third" out_has "interface 3: wan3, state 2"
check "but not the hidden one" out_has "2 visible"
type_in tables
check "the operator sees the table" out_has "table 2: 3 items"
type_in tables --layer 2
check "with the hidden record" out_has "table 2 index 2: state 2"
type_in tables 2 1
check "and its bytes" out_has "|........wan1....|"

title "The owner is killed, and comes back"
echo "\$ layer_client keep 4 wan4 &"
: >"$scratch/client.log"
"$bin/layer_client" keep 4 wan4 >"$scratch/client.log" 2>&1 &
pids[client]=$!
check "a client saves again and again" eventually in_file "$scratch/client.log" "saving works"
echo "\$ kill -KILL ${pids[zemad]}"
disown "${pids[zemad]}"
kill -KILL "${pids[zemad]}"
unset 'pids[zemad]'
check "without an owner its saves fail, at once" eventually in_file "$scratch/client.log" "saving fails"
type_in tables
check "and the operator is told so" out_has "no live process"
start zemad zemad
works_again() { [ "$(grep -c 'saving works' "$scratch/client.log")" -eq 2 ]; }
check "the same client goes on with the new owner" eventually works_again
type_in tables
check "whose tables are new" out_has "table 2: 1 item"
show <"$scratch/client.log"
disown "${pids[client]}"
kill -KILL "${pids[client]}"
unset 'pids[client]'

title "Data events: a process of its own serves the module here, in a runtime directory without zemad"
export ZEMA_RUNTIME_DIR=$scratch/events
start receiver data_events receive
run data_events post 7 wan1
check "posted" exited 0
run data_events post 7
check "posted without data" exited 0
run data_events post 8 "the line is slow"
check "posted" exited 0
check "received, with its data" eventually in_file "$scratch/receiver.log" "link up: wan1, 1000 Mbit/s"
check "and without" eventually grep -qx "link up" "$scratch/receiver.log"
check "and the other type" eventually in_file "$scratch/receiver.log" "note: the line is slow"
show <"$scratch/receiver.log"
echo "\$ kill -TERM ${pids[receiver]}"
kill -TERM "${pids[receiver]}"
code=0
wait "${pids[receiver]}" || code=$?
unset 'pids[receiver]'
check "the receiver ended cleanly" exited 0
run data_events post 8 "nobody there"
check "nobody receives now, and the sender is told" exited 1
export ZEMA_RUNTIME_DIR=$scratch/run

title "Large blocks: 5 MiB of text through shared memory, compressed and not"
seq -f 'interface wan%.0f is up, nothing to report' 200000 | head -c $((5 << 20)) >"$scratch/text" || true
for plain in "" --plain; do
    run large_blocks write "$scratch/text" $plain
    check "written by one process" exited 0
    descriptor=$out
    block=$(printf '%08x' "${descriptor%%:*}")
    type_in blocks
    check "the block is there, its maker gone" grep -q "^$block .*large_blocks [0-9]* (gone)" <<<"$out"
    echo "\$ large_blocks read $descriptor $plain >copy"
    code=0
    "$bin/large_blocks" read "$descriptor" $plain >"$scratch/copy" || code=$?
    check "read by another" exited 0
    check "byte for byte" cmp -s "$scratch/text" "$scratch/copy"
    if [ -z "$plain" ]; then
        check "compressed to less than a third" test "${descriptor##*:}" -lt $(((5 << 20) / 3))
    else
        check "as it is" test "${descriptor##*:}" -eq $((5 << 20))
    fi
done
run large_blocks read "$descriptor" --plain
check "a block is read once" out_has "failed (0xF1000007)"
run large_blocks write "$scratch/text"
descriptor=$out
block=$(printf '%08x' "${descriptor%%:*}")
type_in blocks
if [ "$(grep -c '(gone)$' <<<"$out")" -eq 1 ]; then
    type_in blocks --remove-orphans
    check "a block that nobody will read is removed" out_has "$block"
else
    echo "  other programs have such blocks here too: left alone"
    run large_blocks read "$descriptor"
fi
type_in blocks
check "and gone" out_lacks "$block"

title "The packet tunnel on this machine's kernel, which has no such module (./dev kernel boots one that has)"
ZEMA_DIAG=stderr run packet_link 29
check "the kernel was asked, and says that the family is missing" exited 1
check "the library's record: an answer of 52 bytes, which is an error message" out_has " 0x1 0x34 0x0 "

title "The service at a glance, and what passes on the bus"
type_in status
check "zemad is there with its roles" out_has "sync-owner module-49"
check "its tables are counted" out_has "tables  1, items 1"
echo "\$ zemash monitor --kind call,event --count 2 &"
"$bin/zemash" monitor --kind call,event --count 2 >"$scratch/monitor.log" 2>&1 &
pids[monitor]=$!
check "a monitor watches" eventually in_file "$scratch/monitor.log" monitoring
type_in -t 3 -c 'fw show all'
check "the monitor ends after two" eventually is_gone "${pids[monitor]}"
unset 'pids[monitor]'
show <"$scratch/monitor.log"
check "it saw the call" in_file "$scratch/monitor.log" "us: fw show all"
check "and the event" in_file "$scratch/monitor.log" ": 3 Zemacmd fw show all"

title "The library's validators and devices, from the shell"
type_in check host-with-mask 192.168.1.255/255.255.255.0
check "a broadcast address is no host's" exited 1
type_in check ipv6 ::1
check "the loopback address is refused" exited 1
check "with the reason" out_has "loopback"
check "with what the library recorded" out_has "  qx_util_common.cpp:"
type_in devices
check "the loopback device is there" out_has "127.0.0.1"

title "The end"
for name in "${!pids[@]}"; do
    echo "\$ kill -TERM ${pids[$name]}"
    kill -TERM "${pids[$name]}"
    code=0
    wait "${pids[$name]}" || code=$?
    check "$name ended cleanly" exited 0
    check "its process is gone" is_gone "${pids[$name]}"
    unset "pids[$name]"
done
check "no socket is left" is_empty "$ZEMA_RUNTIME_DIR/bus"
check "no role is left" is_empty "$ZEMA_RUNTIME_DIR/roles"
rm -rf "$scratch"
check "no file is left" test ! -e "$scratch"

printf '\ndemo: all %d checks passed\n' "$checks"
