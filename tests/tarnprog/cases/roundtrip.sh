# Program, verify and read back on every 8-bit core family, each step a
# separate run that sees the chip through the state file.
for device in TN8C328 TN8R64 TN8X16; do
    bytes image.bin 3000 7
    to_hex image.bin image.hex 0x100

    tp program "$device" image.hex --verify
    expect_rc 0
    expect_out "programmed $device: 3000 image bytes"

    tp verify "$device" image.hex
    expect_rc 0
    expect_out "verified 3000 bytes"

    tp read "$device" prog 0x100 3000 -o back.bin
    expect_rc 0
    same_file image.bin back.bin
    tp read "$device" prog 0x100 3000 -o back.hex
    expect_rc 0
    srec_cat back.hex -intel -offset -0x100 -o back2.bin -binary
    same_file image.bin back2.bin

    # A binary image lands at --base; bytes of its first and last unit
    # outside it are kept.
    bytes small.bin 10 3
    tp program "$device" small.bin --base 0x205 --verify
    expect_rc 0
    tp read "$device" prog 0x100 3000 -o back.bin
    expect_rc 0
    head -c 261 image.bin > expect.bin
    cat small.bin >> expect.bin
    tail -c +272 image.bin >> expect.bin
    same_file expect.bin back.bin
done
