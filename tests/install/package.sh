#!/usr/bin/env bash
# package.sh PACKAGE: installs the Debian package in a clean namespace, an overlay of this system with nothing
# but a loopback and one link, runs the agent there as the service runs it, asks it, stops it, and takes the
# package away again. Nothing of it is seen outside. Ends with 77, for skipped, if it can't make a namespace,
# unless PIMBSR_LAB_REQUIRED is 1 (tests/support/needs.py).
set -euo pipefail

package=$(realpath "$1")
if [[ ${2:-} != inside ]]; then
  if ! unshare --mount --net --pid --fork true 2>/dev/null || ! grep -qw overlay /proc/filesystems; then
    echo "no namespaces or no overlay here: not run" >&2
    [[ ${PIMBSR_LAB_REQUIRED:-0} != 0 ]] && exit 1
    exit 77
  fi
  exec unshare --mount --net --pid --fork --kill-child --mount-proc "$0" "$package" inside
fi

fail() {
  echo "package.sh: $*" >&2
  [[ -s $log ]] && sed 's/^/agent: /' "$log" >&2
  exit 1
}

# The overlay ----------------------------------------------------------------------------------------------
mount -t tmpfs none /mnt
mkdir /mnt/upper /mnt/work /mnt/root
mount -t overlay overlay -o lowerdir=/,upperdir=/mnt/upper,workdir=/mnt/work /mnt/root
root=/mnt/root
mount -t proc proc $root/proc
mount --rbind /dev $root/dev
for folder in run tmp; do mount -t tmpfs none $root/$folder; done
cp "$package" $root/tmp/pimbsr.deb
log=$root/tmp/agent.log
in_root() { chroot $root /usr/bin/env PATH=/usr/sbin:/usr/bin:/sbin:/bin "$@"; }
# A former installation of this machine is not what is tested.
in_root dpkg --purge pimbsr >/dev/null 2>&1 || true

# The service manager that the scripts of the package find writes down what it is asked.
mkdir -p $root/run/systemd/system
calls=$root/tmp/systemctl.log
rm -f $root/usr/bin/systemctl
printf '#!/bin/sh\necho "$*" >>/tmp/systemctl.log\n' >$root/usr/bin/systemctl
chmod 755 $root/usr/bin/systemctl
# was_asked VERB UNIT: whether one of the calls begins with the verb and has the unit.
was_asked() { grep -E "^$1 .*\b$2( |\$)" "$calls" >/dev/null; }

# Installing -----------------------------------------------------------------------------------------------
in_root dpkg --install /tmp/pimbsr.deb >$root/tmp/dpkg.log || fail "dpkg: $(cat $root/tmp/dpkg.log)"
for file in usr/bin/pimbsr etc/pimbsr/pimbsr.toml usr/lib/systemd/system/pimbsr.service \
  usr/lib/systemd/system/pimbsr-web.service usr/lib/systemd/system/pimbsr-metrics.socket \
  usr/share/pimbsr/prometheus/pimbsr.rules.yml usr/share/pimbsr/prometheus/pimbsr-dashboard.json \
  usr/share/bash-completion/completions/pimbsr usr/share/zsh/vendor-completions/_pimbsr \
  usr/share/fish/vendor_completions.d/pimbsr.fish \
  usr/share/man/man8/pimbsr.8.gz usr/share/doc/pimbsr/README.md usr/include/pimbsr/host/Router.h; do
  [[ -e $root/$file ]] || fail "/$file is not installed"
done
# Each page's links to files, as in [text](../docs/see.md#part).
pages=$root/usr/share/doc/pimbsr
while IFS=: read -r page link; do
  link=${link#*\(}
  [[ -e ${page%/*}/$link ]] || fail "${page#"$root"} links to $link, which is not installed"
done < <(grep -roE --include='*.md' '\]\([[:alnum:]_./-]+\.[a-z]+' "$pages")
while read -r page; do
  [[ -e $root/$page ]] || fail "the manual names $page, which is not installed"
done < <(zgrep -oE '/usr/share/doc/pimbsr/[a-z/]+\.md' $root/usr/share/man/man8/pimbsr.8.gz)
in_root getent passwd pimbsr >/dev/null || fail "no user pimbsr"
in_root getent group pimbsr-read >/dev/null || fail "no group pimbsr-read"
in_root dpkg-query --show --showformat='${Conffiles}' pimbsr | grep /etc/pimbsr/pimbsr.toml >/dev/null ||
  fail "the configuration is no conffile"
if in_root ldd /usr/bin/pimbsr | grep "not found"; then fail "libraries are missing"; fi
in_root /usr/bin/pimbsr --version
if command -v systemd-analyze >/dev/null; then
  in_root systemd-analyze verify --man=no pimbsr.service pimbsr-web.service pimbsr-metrics.socket ||
    fail "the service files have errors"
fi

if was_asked "(start|enable|try-restart)" "pimbsr.*"; then fail "a first installation starts services"; fi
in_root dpkg --install /tmp/pimbsr.deb >$root/tmp/dpkg.log || fail "dpkg: $(cat $root/tmp/dpkg.log)"
for unit in pimbsr.service pimbsr-web.service pimbsr-metrics.socket; do
  was_asked try-restart $unit || fail "an upgrade does not restart $unit"
done
was_asked stop pimbsr-metrics.service || fail "an upgrade leaves an old pimbsr-metrics.service"

# Running, as the service does -----------------------------------------------------------------------------
ip link set lo up
ip link add eth0 type veth peer name peer0
ip address add 192.0.2.1/24 dev eth0
ip link set eth0 up
ip link set peer0 up

in_root pimbsr check /etc/pimbsr/pimbsr.toml || fail "the example has errors"
in_root install -d -o pimbsr -g pimbsr -m 0711 /run/pimbsr
in_root install -d -o pimbsr -g pimbsr -m 0750 /var/lib/pimbsr
readers=$(in_root getent group pimbsr-read | cut -d: -f3)
as_service() {
  in_root setpriv --reuid pimbsr --regid pimbsr --groups "$readers" --no-new-privs \
    --inh-caps=-all,+net_raw --ambient-caps=-all,+net_raw --bounding-set=-all,+net_raw "$@"
}
held=$(as_service pimbsr run --config /etc/pimbsr/pimbsr.toml --unprivileged-check)
echo "$held"
grep -q "Effective capabilities *net_raw$" <<<"$held" || fail "capabilities"
grep -q "Reading /etc/shadow *denied" <<<"$held" || fail "/etc/shadow can be read"
grep -q "Executing a program *denied" <<<"$held" || fail "programs can be executed"
grep -q "Opening a raw PIM socket *allowed" <<<"$held" || fail "no raw socket"

as_service pimbsr run --config /etc/pimbsr/pimbsr.toml >"$log" 2>&1 &
for _ in {1..100}; do
  in_root pimbsr show bsr >/dev/null 2>&1 && break
  sleep 0.05
done
in_root pimbsr show bsr || fail "the agent does not answer"
in_root pimbsr show interfaces | grep eth0 >/dev/null || fail "eth0 speaks no PIM"
in_root pimbsr reload || fail "reload"
in_root pimbsr metrics | grep "^# TYPE pimbsr_" >/dev/null || fail "no metrics"

# A member of the reading group sees everything and changes nothing; a stranger does neither.
as_user() { in_root setpriv --reuid 61001 --regid 61001 "$@"; }
as_user --groups "$readers" pimbsr show control >/dev/null || fail "a reader can't see the control sockets"
as_user --groups "$readers" pimbsr metrics >/dev/null || fail "a reader can't see the metrics"
if as_user --groups "$readers" pimbsr reload 2>/dev/null; then fail "a reader reloads"; fi
if as_user --groups "$readers" pimbsr reload --socket /run/pimbsr/control-read-only.sock 2>/dev/null; then
  fail "the read-only socket reloads"
fi
if as_user --clear-groups pimbsr show bsr 2>/dev/null; then fail "a stranger sees the BSR"; fi

# Stopping -------------------------------------------------------------------------------------------------
# Its helper processes have its name too; the agent is their parent, so its number is the lowest.
agents=$(pidof pimbsr) || fail "no agent runs"
agent=$(tr ' ' '\n' <<<"$agents" | sort -n | head -n 1)
start=$(date +%s%N)
kill -TERM "$agent"
wait %1 || fail "the agent ended with status $?"
took=$((($(date +%s%N) - start) / 1000000))
((took < 1000)) || fail "the agent took $took ms to end"
for socket in control control-read-only; do
  [[ ! -e $root/run/pimbsr/$socket.sock ]] || fail "the socket $socket stayed"
done

# Removing -------------------------------------------------------------------------------------------------
: >"$calls"
in_root dpkg --remove pimbsr >/dev/null
for unit in pimbsr.service pimbsr-web.service pimbsr-metrics.socket; do
  was_asked "disable --now" $unit || fail "removal leaves $unit"
done
was_asked stop pimbsr-metrics.service || fail "removal leaves pimbsr-metrics.service"
[[ -e $root/etc/pimbsr/pimbsr.toml ]] || fail "removal took the configuration"
[[ ! -e $root/usr/bin/pimbsr ]] || fail "removal left the command"
in_root dpkg --purge pimbsr >/dev/null
for left in etc/pimbsr var/lib/pimbsr usr/include/pimbsr; do
  [[ ! -e $root/$left ]] || fail "/$left stayed"
done
echo "installed, run, stopped in $took ms and removed"
