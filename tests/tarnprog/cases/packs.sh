# Device names resolve through --device-dir first, then the part packs, then
# the bundled device files.
mkdir -p ext/pack/devs mine
sed 's/name="TN8X16"/name="TN8X16P"/' "$ROOT/devices/TN8X16.xml" > ext/pack/devs/TN8X16P.xml
cp "$ROOT/devices/TN8C328.xml" ext/pack/devs/TN8X16.xml
printf '%s\n' com.velmora.hil.core.partpack_devices=devs com.velmora.hil.core.partpack_tools=tools \
    com.velmora.hil.core.partpack_models=models com.velmora.hil.core.partpack_version=1.0.0 \
    > ext/pack/partpack.properties

tp --packs ext devices
expect_rc 0
expect_out "ext/pack/devs/TN8X16P.xml"
expect_out "TN8R64"
tp --packs ext info TN8X16
expect_rc 0
expect_out "TN8C328: TARN8, family tarn8-classic"
cp "$ROOT/devices/TN8R64.xml" mine/TN8X16.xml
tp --packs ext --device-dir mine info TN8X16
expect_rc 0
expect_out "TN8R64: TARN8_ORBIT"

bytes image.bin 300 1
tp --packs ext program TN8X16P image.bin --verify
expect_rc 0
tp --packs ext verify TN8X16P image.bin
expect_rc 0
