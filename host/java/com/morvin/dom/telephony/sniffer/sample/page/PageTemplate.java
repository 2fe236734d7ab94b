package com.morvin.dom.telephony.sniffer.sample.page;

import java.io.IOException;
import java.io.InputStream;
import java.io.UncheckedIOException;
import java.nio.charset.StandardCharsets;
import java.security.MessageDigest;
import java.security.NoSuchAlgorithmException;
import java.util.Base64;

/** The page without calls. It ends inside the element that holds them, so that calls are appended to the file. */
final class PageTemplate {
  /** The end of the template. It does not occur earlier in it. */
  static final byte[] END = "id=\"data\">\n".getBytes(StandardCharsets.UTF_8);
  /** The maximum length of a template of any version, in bytes. */
  static final int MAX_LENGTH = 256 << 10;

  private PageTemplate() {}

  /**
   * Returns the template with its style and script. The page declares the hash of the script, so that the browser runs
   * no script from the text of a call.
   */
  static byte[] bytes() {
    String script = resource("page.js");
    return resource("page.html").replace("@STYLE@", resource("page.css")).replace("@HASH@", sha256(script))
        .replace("@SCRIPT@", script).getBytes(StandardCharsets.UTF_8);
  }

  private static String resource(String name) {
    try (InputStream in = PageTemplate.class.getResourceAsStream("/page/" + name)) {
      return new String(in.readAllBytes(), StandardCharsets.UTF_8);
    } catch (IOException e) {
      throw new UncheckedIOException(e);
    }
  }

  private static String sha256(String text) {
    try {
      byte[] digest = MessageDigest.getInstance("SHA-256").digest(text.getBytes(StandardCharsets.UTF_8));
      return Base64.getEncoder().encodeToString(digest);
    } catch (NoSuchAlgorithmException e) {
      throw new IllegalStateException("every Java has SHA-256", e);
    }
  }
}
