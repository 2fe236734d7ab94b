package com.morvin.dom.telephony.sniffer.sample;

import java.nio.file.Files;
import java.nio.file.Path;

/** Options from a file of settings, and the password for the broker. */
final class OptionsTest {
  private static Options read(Path directory, String lines, String... more) throws Exception {
    Path file = Files.writeString(directory.resolve("settings"), lines);
    String[] words = new String[more.length + 2];
    words[0] = "--settings";
    words[1] = file.toString();
    System.arraycopy(more, 0, words, 2, more.length);
    return Options.parse(words);
  }

  void testSettingsAreOptions() throws Exception {
    Testing.inDirectory(directory -> {
      String lines = "# a comment\n\n out = /calls \nmono=yes\npcm=no\nheap=2g\nset=A=1\nset=B=2\nkeep=90";
      Options options = read(directory, lines, "--out", "/other");
      Testing.equal(options.out, Path.of("/other"));
      Testing.equal(options.mono, true);
      Testing.equal(options.pcm, false);
      Testing.equal(options.settings.toString(), "[A=1, B=2]");
      Testing.equal(options.keepMillis, 90 * 86_400_000L);
    });
  }

  void testWrongLinesAreNamed() throws Exception {
    String[][] table = {
        {"out=/x\nfoo=1", "line 2: unknown option --foo"},
        {"mono=maybe", "line 1: mono is yes or no, not maybe"},
        {"out", "line 1: --out needs a value"},
        {"keep=ten", "line 1: --keep needs a number from 1 to 1000000, not ten"},
        {"heap=much", "line 1: heap is a size such as 2g, not much"},
        {"settings=/dev/null", "line 1: a file of settings cannot include another one"},
        {"password-file=/nowhere/x\npublish=amqp://me@h", "cannot read the password for the broker"},
        {"password-file=/dev/stdin\npublish=amqp://h/v", "the broker's address has a user and no password"},
        {"publish=amqp://me:x@h:1/", "ends with /, which is a virtual host without a name: write amqp://h or"},
        {"publish=amqp://me@h:65536/v", "line 1: --publish needs an address like amqp://"},
        {"consume=amqp://h/a/b", "as in amqp://h/a%2Fb"},
    };
    for (String[] row : table) {
      Testing.inDirectory(directory -> {
        Path password = Files.writeString(directory.resolve("password"), "secret\n");
        try {
          read(directory, row[0].replace("/dev/stdin", password.toString()));
          throw new AssertionError("no complaint about " + row[0]);
        } catch (Options.UsageException e) {
          Testing.that(e.getMessage().contains(row[1]), e.getMessage());
        }
      });
    }
  }

  void testThePasswordIsAddedWhateverItContains() throws Exception {
    Testing.inDirectory(directory -> {
      Path password = Files.writeString(directory.resolve("password"), "a b:@/%+é\nnot this\n");
      Options options = read(directory, "consume=amqps://me@host:5671/voip\nqueue=q\npassword-file=" + password);
      Testing.equal(options.consume.getUserInfo(), "me:a b:@/%+é");
      Testing.equal(options.consume.getHost() + options.consume.getPort() + options.consume.getPath(), "host5671/voip");
    });
  }
}
