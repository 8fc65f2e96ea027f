# The Pelt parts, through the driver: round trip, unchanged pages skipped,
# fuses, the user page and the security bit.
bytes image.bin 5000 2
tp program TP32A512 image.bin --verify
expect_rc 0
tp verify TP32A512 image.bin
expect_rc 0
tp read TP32A512 flash 0x80000000 5000 -o back.bin
expect_rc 0
same_file image.bin back.bin
tp --json program TP32A512 image.bin
expect_rc 0
expect_json skipped_units 10
grep -qF '"erase_commands":0,"program_commands":0' out || fail "an unchanged image was written"

# One changed byte rewrites one 512-byte page, by the driver's own erase.
cp image.bin changed.bin
printf '\x00' | dd of=changed.bin bs=1 seek=1500 conv=notrunc 2>/dev/null
tp --json program TP32A512 changed.bin --verify
expect_rc 0
expect_json written 512
grep -qF '"erase_commands":1,"program_commands":1' out || fail "more than one page rewritten"

tp fuses TP32A512 3=0 40=0
expect_rc 0
expect_out "fuses: 0xfffffefffffffff7"
tp fuses TP32A512 3=1
expect_rc 0
expect_out "fuses: 0xfffffeffffffffff"

bytes up.bin 4 5
tp userpage TP32A512 --write up.bin --offset 0x1fc
expect_rc 0
tp userpage TP32A512 -o page.bin
head -c 508 /dev/zero | tr '\0' '\377' > expect.bin
cat up.bin >> expect.bin
same_file expect.bin page.bin

tp lock TP32A512
expect_rc 3
expect_err "TP32A512 cannot lock regions through its driver"
tp protection TP32A512
expect_out "security bit clear"
tp security TP32A512 1 --force
expect_rc 0
tp protection TP32A512
expect_out "security bit set"
