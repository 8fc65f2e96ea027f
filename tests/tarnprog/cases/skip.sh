# Programming an identical image again sends no erase and no program command,
# and reads nothing back where the chip checks ranges itself; a one-byte
# change reprograms exactly one erase unit.
bytes image.bin 8192 11
to_hex image.bin image.hex

tp --json program TN8R64 image.hex
expect_rc 0
expect_json erased 8192
expect_json written 8192
expect_json skipped_units 0

tp --json program TN8R64 image.hex --verify
expect_rc 0
expect_json skipped_units 32
expect_json units 32
expect_json erase_commands 0
expect_json program_commands 0
expect_json bytes_read 0
expect_json bytes_written 0
expect_json verified 8192

# One byte of unit 0x1300 changes.
cp image.bin changed.bin
printf '\x5a' | dd of=changed.bin bs=1 seek=4864 conv=notrunc 2>/dev/null
tp --json program TN8R64 changed.bin --verify
expect_rc 0
expect_json skipped_units 31
expect_json erased 256
expect_json written 256

grep -qF '"target":{"commands":' out || fail "no target counters"
grep -qF '"erase_commands":1,"program_commands":1' out || fail "the chip saw more than one unit rewritten"
tp verify TN8R64 image.hex
expect_rc 1
expect_err "verify failed: 1 byte differs, the first at 0x1300"

# --no-skip rewrites every unit.
tp --json program TN8R64 changed.bin --no-skip
expect_rc 0
expect_json skipped_units 0
expect_json erased 8192
