package com.morvin.dom.telephony.sniffer.sample.page;

import java.io.IOException;
import java.io.InputStream;
import java.io.UncheckedIOException;
import java.nio.charset.StandardCharsets;
import java.security.MessageDigest;
import java.security.NoSuchAlgorithmException;
import java.util.Base64;

/** The page without its calls. It ends within the element that holds them, so that a call is added behind all else. */
final class PageTemplate {
  /** What the template ends in, and nothing before it holds. */
  static final byte[] END = "id=\"data\">\n".getBytes(StandardCharsets.UTF_8);
  /** No template is longer. */
  static final int MAX_LENGTH = 256 << 10;

  private PageTemplate() {}

  /** With style and script in place. The browser is told the script's hash and so runs nothing else, whatever calls hold. */
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
