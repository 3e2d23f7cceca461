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
if ! grep -q '^root ' <<<"$decls" || ! grep -q '^decl ' <<<"$decls"; then
  echo "no host declarations found in $hostdir"; exit 2
fi

# The library's dynamic symbols, demangled, as "D name" (defined) and
# "U name" (needed), judged against the declarations in one pass:
# 1. nothing of the host is defined inside the library;
# 2. every host symbol it needs is one the host/ headers declare (a class's
#    vtable and type information only for a class with virtual functions);
# 3. it uses the host's services, not copies of its own.
{
  nm -D -C --defined-only "$lib" | sed -E 's/^[0-9a-fA-F]+ [A-Za-z] /D /'
  nm -D -C --undefined-only "$lib" | sed -E 's/^[ \t]*[A-Za-z][ \t]+/U /'
} | awk -v lib="$lib" -v required="ia_ioctrl_v2 sy_system GThread KPMutex KPMutexManager KPFile \
KPLogger TarvelTime KPDeviceTime MachineInfo SystemInfoParser ModuleConfigure StringHandler \
SensorZoomFocusParam" '
  FNR == NR {
    what = $1; rest = substr($0, length($1) + 2)
    if (what == "root") root[rest] = 1
    else if (what == "decl") decl[rest] = 1
    else if (what == "polymorphic") poly[rest] = 1
    next
  }
  {
    how = $1; sym = substr($0, 3); name = sym
    sub(/@.*$/, "", name)
    if (name ~ /^(vtable|typeinfo|typeinfo name) for /) {
      cls = name; sub(/^.* for /, "", cls)
      if (!(cls in root)) next
      if (how == "D") { print "libsensor.so defines the host'"'"'s " sym; bad = 1 }
      else if (!(cls in poly)) { print "libsensor.so needs " sym ", which no host header offers"; bad = 1 }
      next
    }
    p = index(name, "("); if (p > 0) name = substr(name, 1, p - 1)
    gsub(/\[abi:[^]]*\]/, "", name); sub(/[ \t]+$/, "", name)
    r = name; q = index(r, "::"); if (q > 0) r = substr(r, 1, q - 1)
    if (!(r in root)) next
    if (how == "D") { print "libsensor.so defines the host'"'"'s " sym; bad = 1; next }
    used[r] = 1
    if (!(name in decl)) { print "libsensor.so needs " sym ", which no host header declares"; bad = 1 }
  }
  END {
    n = split(required, names, /[ \t\n]+/)
    for (i = 1; i <= n; i++)
      if (names[i] != "" && !(names[i] in used)) { print "libsensor.so does not use the host'"'"'s " names[i]; bad = 1 }
    if (!bad) print "host symbols: " lib " needs only what host/ declares, all undefined"
    exit bad
  }' <(printf '%s\n' "$decls") -
