# Our compound indexes, read by Perl's XBase::Index (Debian libdbd-xbase-perl), compared tag by
# tag with our own walk (DIR/expected_index.json, written by interop_index_write).
#
#   perl interop_index_check.pl DIR
#
# For every table: the index lists the same tag names; each tag's header gives the same key
# expression, filter, key length, unique flag and direction; and walking the tag's tree from its
# root, XBase::Index returns the same keys with the same record numbers in the same order as our
# walk. The deepest tag of each index must have at least three levels, so that interior pages
# pointing to interior pages are read too.
#
# How XBase::Index reports keys: a character key loses its trailing fill (the leaf's trailing
# count), so it is compared with our key text without trailing blanks; a numeric key (-type num,
# here type => 'N') is decoded to a Perl number and compared with ==. XBase::Index does not look at
# the descending flag: it returns a tag's keys as they stand on disk, ascending, so for a
# descending tag its list reversed must equal our walk (duplicates then come highest record first).
#
# Exit status 0 when everything agrees; otherwise every difference is listed and the status is 1.
use strict;
use warnings;
use JSON::PP ();

BEGIN {
  eval { require XBase::Index; 1 }
    or die "interop_index_check.pl: cannot load the XBase::Index module into $^X ($@); "
         . "install the Debian package libdbd-xbase-perl (./do setup does)\n";
}

my $dir = shift @ARGV or die "usage: perl interop_index_check.pl DIR\n";
my $json_file = "$dir/expected_index.json";
open(my $fh, '<:raw', $json_file)
  or die "interop_index_check.pl: cannot read $json_file ($!); the interop_index_write test must run first\n";
my $tables = JSON::PP->new->decode(do { local $/; <$fh> })->{tables};
close $fh;

my $failures = 0;
sub mismatch { print "MISMATCH: $_[0]\n"; ++$failures; }
sub show {  # a key for a message: quoted, bytes outside printable ASCII as \xNN
  my $k = shift;
  return 'undef' unless defined $k;
  $k =~ s/([^\x20-\x7e])/sprintf('\\x%02x', ord $1)/ge;
  return "'$k'";
}

for my $t (@$tables) {
  my $file = "$dir/$t->{index}";
  my $top = XBase::Index->new($file, type => 'C');
  unless ($top) {
    mismatch("$t->{index}: XBase::Index cannot open it: " . (XBase::Index->errstr // ''));
    next;
  }
  my @want_names = sort map { $_->{name} } @{ $t->{tags} };
  my @got_names = sort $top->tags;
  mismatch("$t->{index}: tags @got_names, expected @want_names") if "@got_names" ne "@want_names";

  my $deepest = 0;
  for my $tag (@{ $t->{tags} }) {
    my $where = "$t->{index} tag $tag->{name}";
    my $ix = XBase::Index->new($file, tag => $tag->{name}, type => $tag->{type});
    unless ($ix) {
      mismatch("$where: XBase::Index cannot open it: " . (XBase::Index->errstr // ''));
      next;
    }
    my %header = (
      expression => $ix->{key_string},
      filter     => $ix->{for_string},
      key_length => $ix->{key_length},
      unique     => ($ix->{index_options} & 1) ? 1 : 0,
      descending => $ix->{sort_order} ? 1 : 0,
    );
    my %want = (%$tag, unique => $tag->{unique} ? 1 : 0, descending => $tag->{descending} ? 1 : 0);
    for my $k (sort keys %header) {
      my $g = $header{$k} // '';
      mismatch("$where: header $k " . show($g) . ", expected " . show($want{$k})) if $g ne $want{$k};
    }

    my @got;
    my $levels = 0;
    $ix->prepare_select;
    while (my ($key, $recno) = $ix->fetch) {
      push @got, [$key, $recno];
      $levels = $ix->{level} + 1 if $ix->{level} + 1 > $levels;
    }
    $deepest = $levels if $levels > $deepest;
    @got = reverse @got if $tag->{descending};
    my @keys = @{ $tag->{keys} };
    mismatch("$where: XBase::Index read " . scalar(@got) . " keys, our walk has " . scalar(@keys)) if @got != @keys;
    my $shown = 0;
    for my $i (0 .. ($#got < $#keys ? $#got : $#keys)) {
      my ($gk, $gr) = @{ $got[$i] };
      my ($wk, $wr) = @{ $keys[$i] };
      my $same = $tag->{type} eq 'N' ? $gk == $wk : $gk eq $wk;
      next if $same && $gr == $wr;
      mismatch("$where: position " . ($i + 1) . ": XBase::Index " . show($gk) . " record $gr, our walk "
               . show($wk) . " record $wr");
      if (++$shown == 10) {
        print "  (further differences in this tag not shown)\n";
        last;
      }
    }
    print "$where: " . scalar(@got) . " keys, $levels levels\n";
  }
  mismatch("$t->{index}: the deepest tag has $deepest levels; the records were meant to make at least 3")
    if $deepest < 3;
}

if ($failures) {
  print "Perl XBase::Index: $failures mismatches\n";
  exit 1;
}
print "Perl XBase::Index: all checks passed\n";
exit 0;
