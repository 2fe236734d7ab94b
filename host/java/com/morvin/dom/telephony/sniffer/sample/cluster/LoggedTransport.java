package com.morvin.dom.telephony.sniffer.sample.cluster;

import com.morvin.dom.telephony.sniffer.sample.transport.Command;
import com.morvin.dom.telephony.sniffer.sample.transport.FrameBlock;
import com.morvin.dom.telephony.sniffer.sample.transport.Transport;
import java.io.IOException;
import java.util.Set;
import java.util.function.Consumer;

/** Delivers the frames of another transport, after it has passed them to a log. */
final class LoggedTransport implements Transport {
  private final Transport link;
  private final Consumer<FrameBlock> log;

  LoggedTransport(Transport link, Consumer<FrameBlock> log) {
    this.link = link;
    this.log = log;
  }

  @Override
  public FrameBlock receive(long timeoutMillis) throws IOException, InterruptedException {
    FrameBlock block = link.receive(timeoutMillis);
    if (block != null) {
      log.accept(block);
    }
    return block;
  }

  @Override
  public boolean hasBlock() {
    return link.hasBlock();
  }

  @Override
  public void send(int sniffer, Command command) {
    link.send(sniffer, command);
  }

  @Override
  public Set<Integer> sniffers() {
    return link.sniffers();
  }

  @Override
  public int sessions() {
    return link.sessions();
  }

  @Override
  public void close() {
    link.close();
  }
}
