package com.morvin.dom.telephony.sniffer.sample;

import java.io.File;
import java.lang.reflect.InvocationTargetException;
import java.lang.reflect.Method;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Comparator;
import java.util.Objects;
import java.util.stream.Stream;

/** Runs the methods of the named class of this package whose names start with "test", each on a new object. */
public final class Testing {
  private Testing() {}

  /** A body of a test, which may throw. */
  interface Body<T> {
    void run(T argument) throws Exception;
  }

  /**
   * Exits with status 1 when a test failed.
   *
   * @param arguments the name of the class
   */
  public static void main(String[] arguments) throws Exception {
    Class<?> tests = Class.forName(Testing.class.getPackageName() + "." + arguments[0]);
    int failed = 0;
    for (Method test : tests.getDeclaredMethods()) {
      if (test.getName().startsWith("test")) {
        try {
          test.invoke(tests.getDeclaredConstructor().newInstance());
          System.out.println("ok    " + test.getName());
        } catch (InvocationTargetException e) {
          failed++;
          System.out.println("FAIL  " + test.getName());
          e.getCause().printStackTrace(System.out);
        }
      }
    }
    System.exit(failed == 0 ? 0 : 1);
  }

  static void equal(Object actual, Object expected) {
    if (!Objects.equals(actual, expected)) {
      throw new AssertionError("expected " + expected + "\n     but got " + actual);
    }
  }

  static void that(boolean holds, String what) {
    if (!holds) {
      throw new AssertionError(what);
    }
  }

  /** Runs the body and removes the directory again. */
  static void inDirectory(Body<Path> body) throws Exception {
    Path directory = Files.createTempDirectory("recorder-test");
    try {
      body.run(directory);
    } finally {
      try (Stream<Path> all = Files.walk(directory)) {
        all.sorted(Comparator.reverseOrder()).map(Path::toFile).forEach(File::delete);
      }
    }
  }
}
