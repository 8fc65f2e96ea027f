# The NVM controller parts, through the driver: round trips on each block,
# unchanged units skipped, the user page, lock regions and security.
for device in CM0N256 CM4U1024 CM23D64; do
    bytes image.bin 9000 3
    to_hex image.bin image.hex 0x2000
    tp program "$device" image.hex --verify
    expect_rc 0
    tp verify "$device" image.hex
    expect_rc 0
    tp read "$device" FLASH 0x2000 9000 -o back.bin
    expect_rc 0
    same_file image.bin back.bin
    tp --json program "$device" image.hex
    expect_rc 0
    expect_json skipped_units "$(grep -o '"units":[0-9]*' out | cut -d: -f2)"
    grep -qF '"target":{"commands":0,' out || fail "$device: an unchanged image sent commands"
done

# One changed byte rewrites one 256-byte unit (4 pages of 64) on the plain block.
cp image.bin changed.bin
printf '\x00' | dd of=changed.bin bs=1 seek=700 conv=notrunc 2>/dev/null
tp --json program CM0N256 changed.bin --base 0x2000 --verify
expect_rc 0
expect_json erased 256
expect_json written 256


# The user page keeps the bytes a write does not cover.
bytes up.bin 16 4
tp userpage CM0N256 --write up.bin --offset 8
expect_rc 0
tp userpage CM0N256 -o page.bin
expect_rc 0
head -c 8 /dev/zero | tr '\0' '\377' > expect.bin
cat up.bin >> expect.bin
head -c 40 /dev/zero | tr '\0' '\377' >> expect.bin
same_file expect.bin page.bin

# A locked region is unlocked by the programmer before it is erased.
tp lock CM0N256 0 0x4000
expect_rc 0
expect_out "locked: 0"
bytes other.bin 512 8
tp --json program CM0N256 other.bin
expect_rc 0
expect_json unlocked_units 1
tp verify CM0N256 other.bin
expect_rc 0

tp security CM0N256 1
expect_rc 2
tp security CM0N256 1 --force
expect_rc 0
tp protection CM0N256
expect_out "security level 1"
tp fuses CM0N256
expect_rc 3
expect_err "does not handle fuses"
