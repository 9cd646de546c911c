# Our tables, read by Perl's XBase module (Debian libdbd-xbase-perl), compared field for field
# with what interop_write meant to store (DIR/expected.json).
#
#   perl interop_check.pl DIR
#
# XBase hands back C fields without trailing blanks, N fields as numbers, D fields as their
# digits taken as a number (so "00010101" reads 10101: compared as a number too), L fields as 1,
# 0 or undef, memo fields as their exact bytes (undef when empty). Exit status 0 when everything
# agrees; otherwise every difference is listed and the status is 1.
use strict;
use warnings;
use JSON::PP ();

BEGIN {
  eval { require XBase; 1 }
    or die "interop_check.pl: cannot load the XBase module into $^X ($@); "
         . "install the Debian package libdbd-xbase-perl (./do setup does)\n";
}

my $dir = shift @ARGV or die "usage: perl interop_check.pl DIR\n";
my $json_file = "$dir/expected.json";
open(my $fh, '<:raw', $json_file)
  or die "interop_check.pl: cannot read $json_file ($!); the interop_write test must run first\n";
my $tables = JSON::PP->new->decode(do { local $/; <$fh> })->{tables};
close $fh;

my $failures = 0;
sub mismatch { print "MISMATCH: $_[0]\n"; ++$failures; }
sub show { defined $_[0] ? "'$_[0]'" : 'undef' }

for my $t (@$tables) {
  my $file = "$dir/$t->{file}";
  my $table = XBase->new(name => $file);
  unless ($table) {
    mismatch("$t->{file}: XBase cannot open it: " . XBase->errstr);
    next;
  }
  my @fields = @{ $t->{fields} };
  my @names = $table->field_names;
  my @types = $table->field_types;
  my @lens = $table->field_lengths;
  my @decs = $table->field_decimals;
  mismatch("$t->{file}: " . scalar(@names) . " fields, expected " . scalar(@fields)) if @names != @fields;
  for my $i (0 .. $#fields) {
    my $f = $fields[$i];
    my $got = join('/', map { $_ // '?' } $names[$i], $types[$i], $lens[$i], $decs[$i]);
    my $want = join('/', $f->{name}, $f->{type}, $f->{len}, $f->{dec});
    mismatch("$t->{file}: field " . ($i + 1) . " is $got, expected $want") if $got ne $want;
  }
  my @records = @{ $t->{records} };
  my $last = $table->last_record;
  mismatch("$t->{file}: last record index $last, expected " . $#records) if $last != $#records;
  for my $r (0 .. $#records) {
    my $want = $records[$r];
    my ($deleted, @values) = $table->get_record($r);
    my $where = "$t->{file} record " . ($r + 1);
    unless (defined $deleted) {
      mismatch("$where: XBase cannot read it: " . $table->errstr);
      next;
    }
    mismatch("$where: deleted flag " . show($deleted)) if ($deleted ? 1 : 0) != ($want->{deleted} ? 1 : 0);
    for my $i (0 .. $#fields) {
      my $type = $fields[$i]{type};
      my $w = $want->{values}[$i];
      my $g = $values[$i];
      my $at = "$where field $fields[$i]{name}";
      if ($type eq 'C') {
        mismatch("$at: " . show($g) . " != " . show($w)) if !defined $g || $g ne $w;
      } elsif ($type eq 'N' || $type eq 'D') {
        if (!defined $w) {
          mismatch("$at: " . show($g) . ", expected blank") if defined $g && $g ne '';
        } else {
          mismatch("$at: " . show($g) . " != $w") if !defined $g || $g eq '' || $g != $w;
        }
      } elsif ($type eq 'L') {
        my $ok = !defined $w ? !defined $g : (defined $g && ($g ? 1 : 0) == ($w ? 1 : 0));
        mismatch("$at: " . show($g) . " != " . (defined $w ? ($w ? 'true' : 'false') : 'undef')) unless $ok;
      } elsif ($type eq 'M') {
        my $bytes = pack('H*', $w);
        my $got = defined $g ? $g : '';
        mismatch("$at: memo of " . length($got) . " bytes differs from the " . length($bytes) . " written")
          if $got ne $bytes;
      }
    }
  }
  $table->close;
}

if ($failures) {
  print "Perl XBase: $failures mismatches\n";
  exit 1;
}
print "Perl XBase: all checks passed\n";
exit 0;
