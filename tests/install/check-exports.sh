#!/usr/bin/env bash
# What the shared library offers a host by name: the unmangled factory and
# the members of LibSorvik, each of them, and nothing of the engine, the link
# or the Qt templates they use.
#   check-exports.sh LIBRARY_FILE
set -euo pipefail
library=$1
# The factory, LibSorvik's members with their thunks, its vtable, type
# information and meta-object come to about 105; room for a few members more.
ceiling=130

raw=$(nm -D --defined-only "$library")
names=$(awk '{ $1 = ""; $2 = ""; sub(/^  /, ""); print }' <<<"$raw" | c++filt)
count=$(wc -l <<<"$names")
failed=0

echo "$count exported symbols (ceiling $ceiling)"
if [ "$count" -gt "$ceiling" ]; then
  echo "FAIL: more than $ceiling exported symbols" >&2
  failed=1
fi

strays=$(grep -v -e '^getSharedLibrary$' -e 'LibSorvik' <<<"$names" || true)
if [ -n "$strays" ]; then
  echo "FAIL: exported beside the factory and LibSorvik:" >&2
  head -n 20 <<<"$strays" >&2
  failed=1
fi

# A host resolves the factory by its plain name, as a function.
if ! grep -q ' T getSharedLibrary$' <<<"$raw"; then
  echo "FAIL: getSharedLibrary is not exported as a plain function" >&2
  failed=1
fi

members=(
  LibSorvik getDriveName getversion_number DebugCmd ConnectDrive SetConnectPar DisConnectDrive DestroyFree
  SetDataInfo ReadVariable WriteVariable Read_data Write_data
  getArea getAddr getmaximum_length getBytelen
  set_variant_bool set_variant_Int8 set_variant_UInt8 set_variant_Int16 set_variant_UInt16 set_variant_Int32
  set_variant_UInt32 set_variant_fload set_variant_Int64 set_variant_UInt64 set_variant_double set_variant_string
  Wset_variant_bool Wset_variant_Int8 Wset_variant_UInt8 Wset_variant_Int16 Wset_variant_uInt16
  Wset_variant_Int32 Wset_variant_UInt32 Wset_variant_float Wset_variant_Int64 Wset_variant_UInt64
  Wset_variant_double Wset_variant_string
  SetInductionParam InductiveDrive_Read DelInductiveDrive_Read DelCannotInductiveDrive_Read
  GetInductiveDrive_Read GetCannotInductiveDrive_Read BlockReading PointReading
  InductiveDrive_Write GetInductiveDrive_Write GetCannotInductiveDrive_Write BlockWriting PointWriting
  metaObject qt_metacast qt_metacall
)
for member in "${members[@]}"; do
  if ! grep -q "^LibSorvik::$member(" <<<"$names"; then
    echo "FAIL: LibSorvik::$member is not exported" >&2
    failed=1
  fi
done
for object in 'LibSorvik::staticMetaObject' 'vtable for LibSorvik' 'typeinfo for LibSorvik'; do
  if ! grep -qx "$object" <<<"$names"; then
    echo "FAIL: $object is not exported" >&2
    failed=1
  fi
done

[ "$failed" = 0 ] && echo "exports ok"
exit "$failed"
