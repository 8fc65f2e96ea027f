# Every user error ends in one message and its exit code, and nothing is
# written when the error can be known before the first write.
bytes image.bin 1024 5
to_hex image.bin image.hex
tp program TN8C328 image.hex
expect_rc 0
cp .tarnprog/TN8C328.state before.state

# A record with a wrong checksum names its line.
sed '3s/..$/00/' image.hex > badsum.hex
tp program TN8C328 badsum.hex
expect_rc 2
expect_err "badsum.hex:3: A record in the Intel Hex file has a checksum mismatch"
# A file cut after a whole line has no end record.
head -n 5 image.hex > cut.hex
tp program TN8C328 cut.hex
expect_rc 2
expect_err "cut.hex:5: the file ends without an end-of-file record; it is truncated"
# An image that runs one byte past the flash (32 KiB).
bytes tail.bin 2 1
tp program TN8C328 tail.bin --base 0x7fff
expect_rc 2
expect_err "bytes 0x8000-0x8000 lie outside it (flash: 0x0-0x7fff)"
same_file before.state .tarnprog/TN8C328.state
# Ending exactly at the last byte is fine.
bytes last.bin 1 1
tp program TN8C328 last.bin --base 0x7fff
expect_rc 0

tp program TN8Q999 image.hex
expect_rc 3
expect_err "unknown device 'TN8Q999'"
tp verify tn8c328 image.hex
expect_rc 3
expect_err "did you mean TN8C328?"

# A damaged state file is refused and left as it was.
cp .tarnprog/TN8C328.state good.state
head -c 2000 good.state > broken.state
tp --state broken.state verify TN8C328 image.hex
expect_rc 3
expect_err "unreadable state file broken.state: the file is damaged or truncated"
tp --state broken.state program TN8C328 image.hex
expect_rc 3
head -c 2000 good.state | cmp -s - broken.state || fail "the damaged state file was overwritten"
tp --state good.state verify TN8R64 image.hex
expect_rc 3
expect_err "holds a TN8C328, not a TN8R64"

# Locked flash: refused before the first write; a chip erase clears the lock.
tp lock TN8C328
expect_rc 0
expect_out "flash programming disabled"
cp .tarnprog/TN8C328.state locked.state
bytes other.bin 1024 6
tp program TN8C328 other.bin
expect_rc 3
expect_err "The flash is locked at 0x0-0x7f; nothing was written"
same_file locked.state .tarnprog/TN8C328.state
tp unlock TN8C328
expect_rc 3
expect_err "cleared only by a chip erase"
tp program TN8C328 other.bin --erase chip --verify
expect_rc 0
tp protection TN8C328
expect_out "flash programming enabled"

# Usage errors.
tp program TN8C328
expect_rc 2
tp program TN8C328 image.hex --base 0x100
expect_rc 2
expect_err "--base applies to binary images"
tp read TN8C328 prog 0x10q 4 -o x.bin
expect_rc 2
expect_err "START '0x10q' is not a number"
tp read TN8C328 prog 0x7ffe 4 -o x.bin
expect_rc 2
expect_err "lie outside prog (0x0-0x7fff)"
tp program TN8C328 image.hex --erase all
expect_rc 2
tp security TN8C328 2
expect_rc 2
expect_err "add --force"
tp program TN8C328 missing.hex
expect_rc 2
expect_err "cannot open image missing.hex"

# With --json a failure is a summary too.
tp --json program TN8C328 badsum.hex
expect_rc 2
expect_json exit_code 2
grep -qF '"error":"badsum.hex:3:' out || fail "no error in the JSON summary"
