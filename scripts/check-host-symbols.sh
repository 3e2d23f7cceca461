#!/usr/bin/env bash
# libsensor.so must leave every host interface undefined, so that a camera's
# own host process supplies them; it must name them, or it is not using them;
# and it may need nothing of the host beyond what the host/ headers declare,
# because those headers are exactly what a camera host supplies (a host that
# supplies just that must be able to load the library).
#   check-host-symbols.sh libsensor.so [host-header-folder]
set -euo pipefail
lib=${1:?usage: check-host-symbols.sh libsensor.so [host-header-folder]}
hostdir=${2:-$(cd "$(dirname "$0")/.." && pwd)/host}
[ -d "$hostdir" ] || { echo "no host header folder $hostdir"; exit 2; }

# What the host/ headers declare, one line each:
#   root NAME         a class or free function of the host
#   decl NAME         a function the host supplies: Class::member or function
#   polymorphic NAME  a class with virtual functions (its vtable and type
#                     information come with its host-supplied members)
# Declarations with a body, deleted or defaulted ones and pure virtual ones
# are not supplied by the host as symbols, and are left out.
declarations() {
  cat "$hostdir"/*.h | awk '
    { line = $0; sub(/\/\/.*/, "", line); if (line ~ /^[ \t]*#/) next; text = text " " line }
    function scope(   q, d) {
      q = ""
      for (d = 1; d <= depth; d++)
        if (kind[d] == "class") q = (q == "" ? name[d] : q "::" name[d])
      return q
    }
    function trim(s) { gsub(/^[ \t]+|[ \t]+$/, "", s); return s }
    function emit(s,   pre, fn, q) {
      s = trim(s)
      if (depth > 0 && kind[depth] != "class" && kind[depth] != "extern") return
      if (index(s, "(") == 0) return
      if (s ~ /^(typedef|using|static_assert|friend|template)[ \t(<]/) return
      if (s ~ /=[ \t]*(delete|default|0)$/) return
      pre = trim(substr(s, 1, index(s, "(") - 1))
      if (!match(pre, /(operator[^A-Za-z0-9_ \t]+|~?[A-Za-z_][A-Za-z0-9_]*)$/)) return
      fn = substr(pre, RSTART, RLENGTH)
      q = scope()
      if (q == "") print "root " fn
      print "decl " (q == "" ? fn : q "::" fn)
      if (q != "" && s ~ /(^|[ \t])virtual[ \t]/) print "polymorphic " q
    }
    END {
      depth = 0; stmt = ""; n = length(text)
      for (i = 1; i <= n; i++) {
        c = substr(text, i, 1)
        if (c == "{") {
          s = trim(stmt)
          depth++
          if (s !~ /\(/ && match(s, /(^|[ \t])(class|struct)[ \t]+[A-Za-z_][A-Za-z0-9_]*/)) {
            kind[depth] = "class"
            name[depth] = substr(s, RSTART, RLENGTH)
            sub(/^[ \t]*(class|struct)[ \t]+/, "", name[depth])
            if (depth == 1) print "root " name[depth]
          } else if (s ~ /^extern[ \t]*"C"$/) {
            kind[depth] = "extern"
          } else {
            kind[depth] = "other" # an enum, an initialiser or an inline body
          }
          stmt = ""
        } else if (c == "}") {
          depth--; stmt = ""
        } else if (c == ";") {
          emit(stmt); stmt = ""
        } else if (c == ":" && kind[depth] == "class" && trim(stmt) ~ /^(public|protected|private)$/) {
          stmt = ""
        } else {
          stmt = stmt c
        }
      }
    }' | sort -u
}

decls=$(declarations)
roots=$(sed -n 's/^root //p' <<<"$decls")
declared=$(sed -n 's/^decl //p' <<<"$decls")
polymorphic=$(sed -n 's/^polymorphic //p' <<<"$decls")
if [ -z "$roots" ] || [ -z "$declared" ]; then
  echo "no host declarations found in $hostdir"; exit 2
fi

# A demangled symbol's qualified name: no parameters, ABI tags or version.
qualified() {
  sed -E 's/@.*$//; s/\(.*$//; s/\[abi:[^]]*\]//g; s/[ \t]+$//'
}
# The host class or function a qualified name belongs to, if any.
is_host_root() {
  grep -qxF "${1%%::*}" <<<"$roots"
}

status=0

# 1. Nothing of the host is defined inside the library.
while read -r sym; do
  name=$(qualified <<<"$sym")
  case "$name" in "vtable for "* | "typeinfo for "* | "typeinfo name for "*) name=${name#* for } ;; esac
  if is_host_root "$name"; then
    echo "libsensor.so defines the host's $sym"; status=1
  fi
done < <(nm -D -C --defined-only "$lib" | sed -E 's/^[0-9a-fA-F]+ [A-Za-z] //')

# 2. Every host symbol the library needs is one the host/ headers declare.
used=()
while read -r sym; do
  name=$(qualified <<<"$sym")
  case "$name" in
    "vtable for "* | "typeinfo for "* | "typeinfo name for "*)
      cls=${name#* for }
      if is_host_root "$cls"; then
        if ! grep -qxF "$cls" <<<"$polymorphic"; then
          echo "libsensor.so needs $sym, which no host header offers"; status=1
        fi
      fi
      continue ;;
  esac
  is_host_root "$name" || continue
  used+=("$name")
  if ! grep -qxF "$name" <<<"$declared"; then
    echo "libsensor.so needs $sym, which no host header declares"; status=1
  fi
done < <(nm -D -C --undefined-only "$lib" | sed -E 's/^[ \t]*[A-Za-z][ \t]+//')

# 3. The library uses the host's services, not copies of its own.
for name in ia_ioctrl_v2 sy_system GThread KPMutex KPMutexManager KPFile KPLogger TarvelTime \
            KPDeviceTime MachineInfo SystemInfoParser ModuleConfigure StringHandler \
            SensorZoomFocusParam; do
  if ! printf '%s\n' "${used[@]}" | grep -qE "^$name(::|$)"; then
    echo "libsensor.so does not use the host's $name"; status=1
  fi
done

[ $status -eq 0 ] && echo "host symbols: $lib needs only what host/ declares, all undefined"
exit $status
