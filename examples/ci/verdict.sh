#!/usr/bin/env bash
# A verdict on a trading client as a step of continuous integration: your test command runs beside a bench of its own,
# and what was on the wire is judged. Copy this, and name your command:
#
#     verdict.sh ./my_client --orders 100
#
# The program is taken from $KAVO, or from the PATH. The folder of the run, with the verdict as text, JSON, JUnit XML
# and a page to look at, is $VERDICT_DIR, or ./verdict; it must not be there yet. Exit status: 0 right, 1 the client is
# wrong, 2 usage, and what is no fault of the client and worth a second run: 3 the bench, 4 nothing certain can be said.
set -uo pipefail

kavo=${KAVO:-kavo}
folder=${VERDICT_DIR:-verdict}
scenario=${SCENARIO:-reject_every=7,partial_fill_every=3,disconnect_after=9}
damage=${DAMAGE:---drop-every 20 --reorder-every 15 --dup-every 10}

if [ $# -eq 0 ]; then
    echo "usage: $0 COMMAND..." >&2
    exit 2
fi

"$kavo" test --dir "$folder" --scenario "$scenario" --with "$damage" -- "$@"
status=$?

case $status in
    0) echo "verdict: right" ;;
    1) echo "verdict: the client is wrong; see $folder/verdict.html, or: $kavo show $folder" ;;
    2) echo "verdict: none, the command line is wrong" ;;
    3) echo "verdict: none, the bench could not do its work; what the venue said last:"
       tail -n 15 "$folder/venue.log" 2>/dev/null ;;
    *) echo "verdict: inconclusive; the text above tells whose fault that is" ;;
esac
exit $status
