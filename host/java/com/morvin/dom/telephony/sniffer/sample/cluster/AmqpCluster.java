package com.morvin.dom.telephony.sniffer.sample.cluster;

import com.morvin.dom.telephony.sniffer.sample.Cluster;
import com.morvin.dom.telephony.sniffer.sample.console.Console;
import com.morvin.dom.telephony.sniffer.sample.service.Service;
import com.morvin.dom.telephony.sniffer.sample.transport.Transport;
import java.io.IOException;
import java.net.URI;
import java.nio.file.Path;

/** Connects front and recorders through an AMQP 0-9-1 broker. */
public final class AmqpCluster implements Cluster {
  /** Makes an object without a connection. */
  public AmqpCluster() {
    // When the library is missing, this fails here and not later on another thread.
    com.rabbitmq.client.ConnectionFactory.class.getName();
  }

  @Override
  public Service front(URI broker, long bufferBytes, Path spool, Service.Limits limits, Console console)
      throws IOException {
    return new Front(new Broker(broker, "front"), bufferBytes, spool, limits, console);
  }

  @Override
  public Transport queue(URI broker, String queue, Console console) throws IOException {
    return new QueueTransport(new Broker(broker, "recorder of " + queue), queue, console);
  }
}
