#!/usr/bin/perl
# Looks into rendered PNG files, with none of the code that is under test:
# signature, size, the sum of every chunk, whole pixels that are not flat, and
# no two files alike.
#
#   png.pl WIDTH HEIGHT COUNT FILE...
use strict;
use warnings;
use Compress::Zlib;
use Digest::SHA qw(sha256);

my ($width, $height, $count, @files) = @ARGV;
my %seen;

sub look {
  my ($file) = @_;
  open(my $in, '<:raw', $file) or return "cannot be read: $!";
  my $bytes = do { local $/; <$in> };
  return 'no PNG signature' if substr($bytes, 0, 8) ne "\x89PNG\r\n\x1a\n";

  my ($at, $type, $header, $packed) = (8, '', '', '');
  while ($type ne 'IEND') {
    return "cut short at byte $at" if $at + 12 > length $bytes;
    my $size = unpack 'N', substr($bytes, $at, 4);
    return "cut short at byte $at" if $at + 12 + $size > length $bytes;
    $type = substr($bytes, $at + 4, 4);
    my $data = substr($bytes, $at + 8, $size);
    return "wrong sum of chunk $type at byte $at"
      if crc32($type . $data) != unpack 'N', substr($bytes, $at + 8 + $size, 4);
    $header = $data if $type eq 'IHDR';
    $packed .= $data if $type eq 'IDAT';
    $at += 12 + $size;
  }
  return 'bytes after its end' if $at != length $bytes;

  my ($w, $h, $depth, $colour) = unpack 'NNCC', $header;
  return "is ${w}x$h" if $w != $width || $h != $height;
  my $channels = {0 => 1, 2 => 3, 4 => 2, 6 => 4}->{$colour} or return "colour type $colour";
  my $row = $w * $channels * $depth / 8;
  my $pixels = uncompress($packed);
  return 'its pixels cannot be unpacked' if !defined $pixels;
  return 'it has ' . length($pixels) . ' bytes of pixels' if length $pixels != $h * (1 + $row);

  # Whatever the filter, a row of one colour has at most three different bytes
  # for each byte of a pixel.
  my %values;
  @values{unpack 'C*', join '', map { substr($pixels, $_ * (1 + $row) + 1, $row) } 0 .. $h - 1} = ();
  return 'it is flat' if keys %values <= 3 * $channels * $depth / 8;
  my $sum = sha256($pixels);
  return "it is the same picture as $seen{$sum}" if $seen{$sum};
  $seen{$sum} = $file;
  return '';
}

my $bad = 0;
for my $file (@files) {
  my $what = look($file) or next;
  print "$file: $what\n";
  $bad++;
}
if (@files != $count) {
  print scalar(@files) . " files, not $count\n";
  $bad++;
}
exit 1 if $bad;
print "$count images of ${width}x$height: every chunk's sum is right, none is flat, no two are alike\n";
