#!/usr/bin/env bash
# libsensor.so must leave every host interface undefined, so that a camera's
# own host process supplies them; and it must name them, or it is not using them.
set -euo pipefail
lib=${1:?usage: check-host-symbols.sh libsensor.so}
syms=$(nm -D -C "$lib")
host='ia_ioctrl_v2|sy_system|GThread::|KPMutex::|KPMutexManager::|KPFile::|KPLogger::|TarvelTime::|KPDeviceTime::|MachineInfo::|SystemInfoParser::|DeviceType::|ModuleConfigure::|ModuleConfigureParser::|StringHandler::|SensorZoomFocusParam::|VideoStreamModule::|AVStreamParam::|RefCountManager::'
defined=$(grep -E '^[0-9a-f]+ [A-TV-Za-z] ' <<<"$syms" | grep -E "$host" || true)
if [ -n "$defined" ]; then
  echo "libsensor.so defines host symbols:"; echo "$defined"; exit 1
fi
missing=0
for name in ia_ioctrl_v2 sy_system 'GThread::' 'KPMutex::' 'KPFile::' 'KPLogger::' \
            'TarvelTime::' 'KPDeviceTime::' 'MachineInfo::' 'SystemInfoParser::' \
            'ModuleConfigure::' 'StringHandler::' 'SensorZoomFocusParam::'; do
  if ! grep -E '^ +U ' <<<"$syms" | grep -F "$name" >/dev/null; then
    echo "libsensor.so does not use the host's $name"; missing=1
  fi
done
[ $missing -eq 0 ] && echo "host symbols: all undefined in $lib"
exit $missing
