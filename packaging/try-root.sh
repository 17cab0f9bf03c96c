# What try-package and try-upgrade have in common: a clean root as a system of its own, whose network and process tree end with
# the try. Sourced as root with the root folder in $root; the managers' tools are this machine's. Reads PATIENCE: seconds
# to wait for what takes a moment (10).
patience=${PATIENCE:-10}
mount -t proc proc "$root/proc"
ip link set lo up

work=$(mktemp -d /tmp/vrx-try.XXXXXX)
daemons=()
step="the beginning"
finish() {
  status=$?
  trap - EXIT
  for pid in "${daemons[@]}"; do kill "$pid" 2>/dev/null || true; done
  wait
  if [ "$status" -ne 0 ]; then
    echo "${0##*/}: failed at: $step" >&2
    for log in "$work"/*.log; do [ -s "$log" ] && { echo "--- ${log##*/}"; tail -n 20 "$log"; } >&2; done
  fi
  rm -rf "$work"
  exit "$status"
}
trap finish EXIT
trap 'exit 130' INT TERM

step() { step=$*; echo "  $*"; }
fail() { echo "${0##*/}: $*" >&2; exit 1; }

# expect WANTED GOT WHAT
expect() { [ "$1" = "$2" ] || fail "$3: expected \"$1\", got \"$2\""; }

# wait_for COMMAND...: until the command succeeds.
wait_for() {
  local end=$((SECONDS + patience))
  until "$@" >/dev/null 2>&1; do
    [ "$SECONDS" -lt "$end" ] || fail "waited in vain for: $*"
    sleep 0.1
  done
}

inside() { chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin DEBIAN_FRONTEND=noninteractive LC_ALL=C "$@"; }
dpkg_inside() { inside dpkg "$@" >>"$work/dpkg.log" 2>&1 </dev/null || fail "dpkg $*"; }
owner_and_mode() { inside stat -c '%U:%G %a' "$1"; }

# put FOLDER PACKAGE.deb...: packages into a folder of the root.
put() {
  local folder=$root$1
  shift
  mkdir -p "$folder"
  cp "$@" "$folder/"
}

# packages_in FOLDER [NAME...]: the packages of a folder of the root, or those of these names, by the paths they have inside.
packages_in() {
  local folder=$1 name
  shift
  [ $# -gt 0 ] || set -- '*'
  for name in "$@"; do (cd "$root" && for file in ".$folder/"$name"_"*.deb; do echo "${file#.}"; done); done
}

# command_of UNIT: the command line of a unit, a word a line.
command_of() { sed -n 's/^ExecStart=//p' "$root/lib/systemd/system/$1.service" | tr ' ' '\n'; }
user_of() { sed -n 's/^User=//p' "$root/lib/systemd/system/$1.service"; }

# start UNIT: its command line as its user, until it is ready.
start() {
  local command user
  mapfile -t command < <(command_of "$1")
  user=$(user_of "$1")
  : >"$work/$1.log"
  chroot --userspec="$user:$user" --groups="$user" "$root" env -i PATH=/usr/sbin:/usr/bin "${command[@]}" \
    >>"$work/$1.log" 2>&1 &
  daemons+=("$!")
  wait_for grep -q ' ready$' "$work/$1.log"
}

end_daemons() {
  local pid
  for pid in "${daemons[@]}"; do
    kill "$pid"
    wait "$pid" || fail "a daemon ended with exit code $?"
  done
  daemons=()
}

state_is_private() {
  local others
  others=$(inside find /var/lib/vrx \( ! -user vrx -o -perm /077 \) -print)
  [ -z "$others" ] || fail "state that is not its owner's alone: $others"
}

agent=udp:127.0.0.1:1161
storage=1.3.6.1.4.1.99871.2.91
destination=$storage.10.4.1.1
alarm_table=$storage.10.1.1
export SNMPCONFPATH=/nonexistent MIBS='' SNMP_PERSISTENT_DIR=$work/tools
mkdir -p "$work/tools/cert_indexes"

# add_operator: a user with the words by which Net-SNMP's tools are it, in $operator.
add_operator() {
  inside vrxctl user add operator >"$work/user"
  authentication=$(sed -n 's/^ *authentication (SHA-256): *//p' "$work/user")
  privacy=$(sed -n 's/^ *encryption (AES): *//p' "$work/user")
  operator=(-v3 -l authPriv -u operator -a SHA-256 -A "$authentication" -x AES -X "$privacy" -t "$patience" -r 0)
}

# receive NAME PORT CONFIGURATION: a receiver of notifications, which logs to NAME.log.
receive() {
  printf '%s\n' "$3" >"$work/$1.conf"
  snmptrapd -f -n -On -A -Lf "$work/$1.log" -C -c "$work/$1.conf" -p "$work/$1.pid" "udp:127.0.0.1:$2" >"$work/$1.out.log" 2>&1 &
  daemons+=("$!")
  wait_for test -s "$work/$1.pid"
}

# create_destination PORT: row 1 of the destination table, SNMPv3 with both traps.
create_destination() {
  snmpset "${operator[@]}" "$agent" $destination.3.1 i 4 $destination.6.1 s 127.0.0.1 $destination.2.1 u "$1" \
    $destination.5.1 i 3 $destination.7.1 i 3 $destination.8.1 s operator >/dev/null
}
