# Erasing whole units, the chip, and a dry run that changes nothing.
bytes image.bin 1024 9
tp program TN8X16 image.bin
expect_rc 0

tp program TN8X16 image.bin --dry-run --no-skip
expect_rc 0
expect_out "0x0-0x3ff"
expect_out "erase + program"
expect_out "would program TN8X16"
cp .tarnprog/TN8X16.state before.state
bytes other.bin 1024 10
tp --json program TN8X16 other.bin --dry-run
expect_rc 0
expect_json dry_run true
expect_json bytes_written 0
same_file before.state .tarnprog/TN8X16.state

tp erase TN8X16 0x40 0x40
expect_rc 0
expect_out "erased 64 bytes of TN8X16 in 1 erase units"
tp read TN8X16 prog 0 0x100 -o back.bin
head -c 64 image.bin > expect.bin
head -c 64 /dev/zero | tr '\0' '\377' >> expect.bin
tail -c +129 image.bin | head -c 128 >> expect.bin
same_file expect.bin back.bin

tp erase TN8X16 0x20 0x40
expect_rc 2
expect_err "erase ranges must start and end on 64-byte erase unit borders"
tp erase TN8X16
expect_rc 2
tp erase TN8X16 --chip
expect_rc 0
tp read TN8X16 prog 0 0x400 -o back.bin
head -c 1024 /dev/zero | tr '\0' '\377' > blank.bin
same_file blank.bin back.bin
