package com.morvin.dom.telephony.sniffer.sample;

import java.io.File;
import java.lang.reflect.InvocationTargetException;
import java.lang.reflect.Method;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Comparator;
import java.util.List;
import java.util.Objects;
import java.util.TimeZone;
import java.util.stream.Stream;

/**
 * Runs the methods of a test class whose names start with "test", in the order of their names, each on a new object.
 */
public final class Testing {
  private Testing() {}

  /** The body of a test, which may throw. */
  interface Body<T> {
    void run(T argument) throws Exception;
  }

  /**
   * Exits with status 1 when a test has failed. Temporary files are in {@code TMPDIR} as with other programs.
   *
   * @param arguments the name of the class in this package
   */
  public static void main(String[] arguments) throws Exception {
    TimeZone.setDefault(TimeZone.getTimeZone("UTC")); // the recorder names its files by local time
    if (System.getenv("TMPDIR") != null) {
      System.setProperty("java.io.tmpdir", System.getenv("TMPDIR"));
    }
    Class<?> tests = Class.forName(Testing.class.getPackageName() + "." + arguments[0]);
    int failed = 0;
    for (Method test : testsOf(tests)) {
      try {
        test.invoke(tests.getDeclaredConstructor().newInstance());
        System.out.println("ok    " + test.getName());
      } catch (InvocationTargetException e) {
        failed++;
        System.out.println("FAIL  " + test.getName());
        e.getCause().printStackTrace(System.out);
      }
    }
    System.exit(failed == 0 ? 0 : 1);
  }

  /** Reflection returns the methods in any order. */
  private static List<Method> testsOf(Class<?> tests) {
    return Stream.of(tests.getDeclaredMethods()).filter(method -> method.getName().startsWith("test"))
        .sorted(Comparator.comparing(Method::getName)).toList();
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

  /** Runs the body with a new directory, and removes the directory. */
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
